// Matches words with forms.
#include "apps/zelagent/StatementForm.h"

#include "agent/CommandRunner.h"

namespace ZelAgent {

namespace {

// Whether a form's word is an operand: in capitals, or a choice of words.
bool isOperand(std::string_view formWord) {
   return formWord.find_first_of("|ABCDEFGHIJKLMNOPQRSTUVWXYZ") != std::string_view::npos;
}

bool isOptional(std::string_view formWord) {
   return formWord.starts_with('[');
}

// Whether a word may stand for the operand: any for one in capitals, one of the choice otherwise.
bool isAllowed(std::string_view operand, const Kiln::String& word) {
   // Characters, not literals: before a temporary, g++ 12 at -O3 wrongly warns of overlapping copies.
   return operand.find('|') == std::string_view::npos ||
          ('|' + Kiln::String(operand) + '|').find('|' + word + '|') != Kiln::String::npos;
}

} // namespace

std::optional<std::vector<Kiln::String>> operandsOf(std::string_view form,
                                                    const std::vector<Kiln::String>& words) {
   std::vector<Kiln::String> operands;
   auto word = words.begin();
   for (const Kiln::String& formWord : Agent::splitWords(form)) {
      if (formWord == "...") {
         operands.assign(word, words.end());
         return operands;
      }
      if (word == words.end()) {
         return isOptional(formWord) ? std::optional(operands) : std::nullopt;
      }
      if (isOperand(formWord) ? !isAllowed(formWord, *word) : formWord != *word) {
         return std::nullopt;
      }
      if (isOperand(formWord)) {
         operands.push_back(*word);
      }
      ++word;
   }
   return word == words.end() ? std::optional(operands) : std::nullopt;
}

} // namespace ZelAgent

// Takes the words from the left: the chip, keywords while they narrow the rows down, the operand, the options. Wherever
// it would take a word and none is left, it notes what the word may be: so parsing the beginning of a line completes
// it.
#include "counters/cli/CommandParser.h"

#include "kiln/Choices.h"
#include "kiln/Numbers.h"

#include <algorithm>

namespace ZelCounter {

namespace {

constexpr std::string_view chipKeyword = "chip";
constexpr std::string_view nonZeroOption = "nonzero";
constexpr std::string_view pipeOption = "pipe";
constexpr std::string_view topOption = "top";
constexpr std::string_view finalOption = "final";
constexpr std::string_view jsonOption = "json";

// In the order in which errors and completions list them.
std::vector<Kiln::String> optionsOf(const CommandRow& row) {
   std::vector<Kiln::String> options;
   if ((row.takes & Takes::pipe) != 0) {
      options.emplace_back(pipeOption);
   }
   if ((row.takes & Takes::nonZero) != 0) {
      options.emplace_back(nonZeroOption);
   }
   if ((row.takes & Takes::top) != 0) {
      options.emplace_back(topOption);
   }
   if ((row.takes & Takes::final) != 0) {
      options.emplace_back(finalOption);
   }
   if ((row.takes & Takes::json) != 0) {
      options.emplace_back(jsonOption);
   }
   return options;
}

} // namespace

CommandParser::CommandParser(const std::vector<Kiln::String>& words, const ZelCountersMgrCli& mgrCli)
     : words_(words), mgrCli_(mgrCli) {
   for (const CommandRow& row : commandTable()) {
      candidates_.push_back(&row);
   }
}

// Fills in what it understood also when something later is wrong: completion asks whether the names in it are known.
Kiln::String CommandParser::parse(ZelCountersCommand* command) {
   command_ = command;
   const CommandRow* row = nullptr;
   if (parseChip()) {
      row = parseKeywords();
   }
   if (row != nullptr && parseOperand(*row)) {
      parseOptions(*row);
      command_->operation = row->operation;
      command_->isClear = row->isClear();
      command_->text = Kiln::joined(words_, " ");
      command_->needsTables = row->needsTables;
   }
   return error_;
}

// Called wherever a word is taken: it may be one of these.
void CommandParser::expect(const Words& words) {
   if (atEnd()) {
      next_.insert(next_.end(), words.begin(), words.end());
   }
}

// " after 'show mac'": the words that were understood so far, as they were typed. Nothing at the beginning.
Kiln::String CommandParser::understood() const {
   const Words taken(words_.begin(), words_.begin() + static_cast<std::ptrdiff_t>(at_));
   return taken.empty() ? "" : " after " + Kiln::quoted(Kiln::joined(taken, " "));
}

// The one of the choices that the next word is or abbreviates; else empty, with the error. With `mayEnd` the error says
// that the command may also end here.
Kiln::String CommandParser::choose(const Words& all, bool mayEnd) {
   expect(all);
   Words expectedHere = all;
   if (mayEnd) {
      expectedHere.emplace_back("nothing more");
   }
   const Kiln::String expected = Kiln::choices(expectedHere);
   if (atEnd()) {
      error_ = "the command is incomplete" + understood() + ": expected " + expected;
      return "";
   }
   const Kiln::String& word = words_[at_];
   const Words meant = Kiln::wordsMeant(word, all);
   if (meant.size() == 1) {
      ++at_;
      return meant.front();
   }
   error_ = meant.empty()
                 ? "unexpected " + Kiln::quoted(word) + understood() + ": " +
                        Kiln::meantOrExpected(word, all, expected)
                 : Kiln::quoted(word) + " is ambiguous" + understood() + ": expected " + Kiln::choices(meant);
   return "";
}

CommandParser::Words CommandParser::nextKeywords() const {
   Words next;
   for (const CommandRow* row : candidates_) {
      const Kiln::String keyword(row->keywordAt(depth_));
      if (!keyword.empty() && std::ranges::find(next, keyword) == next.end()) {
         next.push_back(keyword);
      }
   }
   return next;
}

// The row that the keywords so far spell out, or null. "show mac" is one, and the beginning of "show mac intf" as well.
const CommandRow* CommandParser::completeRow() const {
   const auto found = std::ranges::find_if(
        candidates_, [this](const CommandRow* row) { return row->keywordAt(depth_).empty(); });
   return found == candidates_.end() ? nullptr : *found;
}

void CommandParser::take(const Kiln::String& keyword) {
   std::erase_if(candidates_, [&](const CommandRow* row) { return row->keywordAt(depth_) != keyword; });
   ++depth_;
}

// The optional "chip NAME" and the first keyword: together, since an abbreviation is judged among all that may stand
// here.
bool CommandParser::parseChip() {
   Words first = nextKeywords();
   first.emplace_back(chipKeyword);
   Kiln::String chosen = choose(first, false);
   if (chosen == chipKeyword) {
      expect(mgrCli_.chipNames());
      if (atEnd()) {
         error_ = "chip needs a name: " + mgrCli_.chipChoices();
         return false;
      }
      command_->chip = words_[at_++];
      chosen = choose(nextKeywords(), false);
   }
   if (chosen.empty()) {
      return false;
   }
   take(chosen);
   return true;
}

// Narrows the rows by keywords until the next word is none: what is left of the words is for the row.
const CommandRow* CommandParser::parseKeywords() {
   for (;;) {
      const CommandRow* row = completeRow();
      const Words keywords = nextKeywords();
      if (row != nullptr && (keywords.empty() || atEnd())) {
         expect(keywords);
         return row;
      }
      Words all = keywords;
      const std::size_t before = at_;
      if (row != nullptr) {
         const Words options = optionsOf(*row);
         all.insert(all.end(), options.begin(), options.end());
      }
      const Kiln::String chosen = choose(all, row != nullptr);
      if (chosen.empty()) {
         return nullptr;
      }
      if (std::ranges::find(keywords, chosen) == keywords.end()) {
         at_ = before; // an option, which parseOptions takes with the others
         return row;
      }
      take(chosen);
   }
}

bool CommandParser::parseOperand(const CommandRow& row) {
   if (row.operand == Operand::table && atEnd()) {
      expect(mgrCli_.tableNames(command_->chip, row.isClear()));
   } else if (row.operand == Operand::table && isTable(row)) {
      command_->table = words_[at_++];
   }
   if (row.operand == Operand::stage) {
      return parseStage();
   }
   if (row.operand != Operand::interface) {
      return true;
   }
   if (atEnd()) {
      expect(mgrCli_.interfaceNames(command_->chip));
      error_ = "the command is incomplete" + understood() +
               ": expected an interface, as Ethernet1 or Ethernet1-4,7";
      return false;
   }
   command_->intf = words_[at_++];
   return true;
}

bool CommandParser::parseStage() {
   const auto names = PipelineCounters::stages();
   const Kiln::String chosen = choose(Words(names.begin(), names.end()), false);
   // Past the end when none was chosen; the command is refused then.
   command_->stage = static_cast<U32>(std::ranges::find(names, chosen) - names.begin());
   return !chosen.empty();
}

// The table may be left out, and then the next word is an option: when it abbreviates one and isn't a table's whole
// name.
bool CommandParser::isTable(const CommandRow& row) const {
   const Kiln::String& word = words_[at_];
   const Words options = optionsOf(row);
   return mgrCli_.isTableName(word) ||
          std::ranges::none_of(options, [&](const Kiln::String& option) { return option.starts_with(word); });
}

void CommandParser::parseOptions(const CommandRow& row) {
   Words left = optionsOf(row);
   while (!atEnd()) {
      const Kiln::String chosen = choose(left, true);
      if (chosen.empty() || (chosen == pipeOption && !parsePipe()) || (chosen == topOption && !parseTop())) {
         return;
      }
      std::erase(left, chosen);
      command_->nonZeroOnly |= chosen == nonZeroOption;
      command_->isFinalShown |= chosen == finalOption;
      command_->json |= chosen == jsonOption;
   }
   expect(left);
}

bool CommandParser::parsePipe() {
   if (atEnd()) {
      expect(mgrCli_.pipeNumbers(command_->chip));
      error_ = "pipe needs a pipe's number";
      return false;
   }
   command_->pipe = words_[at_++];
   return true;
}

bool CommandParser::parseTop() {
   constexpr U32 mostTop = 1000;
   expect({"10"}); // any number will do
   if (atEnd()) {
      error_ = "the command is incomplete" + understood() + ": expected a number, as 10";
      return false;
   }
   command_->top = Kiln::parseNumber<U32>(words_[at_], 1, mostTop);
   if (!command_->top) {
      error_ = "top " + Kiln::quoted(words_[at_]) + ": expected 1 to " + std::to_string(mostTop);
      return false;
   }
   ++at_;
   return true;
}

} // namespace ZelCounter

// Splits lines into words, and runs and completes them.
#include "agent/CommandRunner.h"

#include "agent/CommandOrigin.h"
#include "kiln/ActivityLock.h"
#include "kiln/Choices.h"
#include "kiln/TextOutput.h"
#include "kiln/Utf8.h"

#include <optional>

namespace Agent {

namespace {

constexpr std::string_view blanks = " \t\r\n\v\f";
constexpr std::string_view completeKeyword = "complete";

// What follows "complete", if that is the line's first word.
std::optional<std::string_view> lineToComplete(std::string_view line) {
   line.remove_prefix(std::min(line.find_first_not_of(blanks), line.size()));
   if (line.substr(0, line.find_first_of(blanks)) != completeKeyword) {
      return std::nullopt;
   }
   return line.substr(completeKeyword.size());
}

// A name may hold anything; only a word of a line can be typed, and offered.
bool isWord(const Kiln::String& text) {
   return !text.empty() && text.find_first_of(blanks) == Kiln::String::npos && Kiln::printable(text) == text;
}

} // namespace

std::vector<Kiln::String> splitWords(std::string_view line) {
   std::vector<Kiln::String> words;
   for (std::size_t begin = line.find_first_not_of(blanks); begin != std::string_view::npos;
        begin = line.find_first_not_of(blanks, begin)) {
      const std::size_t end = std::min(line.find_first_of(blanks, begin), line.size());
      words.emplace_back(line.substr(begin, end - begin));
      begin = end;
   }
   return words;
}

void CommandRunner::commandTypeIs(const Kiln::String& keyword, Kiln::String commandType) {
   commandTypes_.set(keyword, std::move(commandType));
}

std::vector<Kiln::String> CommandRunner::keywords() const {
   std::vector<Kiln::String> all;
   for (const auto& [keyword, type] : commandTypes_) {
      all.push_back(keyword);
   }
   return all;
}

Kiln::String CommandRunner::expectedKeywords() const {
   return Kiln::joined(keywords(), ", ");
}

Kiln::Ptr<AgentCommandCallback> CommandRunner::callbackFor(const Kiln::String& keyword) const {
   const Kiln::String* const type = commandTypes_.find(keyword);
   return type != nullptr ? directory_->agentCommandCallback(*type) : nullptr;
}

std::vector<Kiln::String> CommandRunner::completions(std::vector<Kiln::String> words) const {
   if (words.empty()) {
      return keywords();
   }
   const Kiln::Ptr<AgentCommandCallback> callback = callbackFor(words.front());
   words.erase(words.begin());
   return callback ? callback->completions(words) : std::vector<Kiln::String>();
}

void CommandRunner::completeLine(std::string_view line, int fd) const {
   std::vector<Kiln::String> words = splitWords(line);
   Kiln::String begun;
   // Without a blank behind it, the last word is still being typed.
   if (!words.empty() && blanks.find(line.back()) == std::string_view::npos) {
      begun = words.back();
      words.pop_back();
   }
   Kiln::TextOutput out(fd);
   for (const Kiln::String& word : completions(words)) {
      if (word.starts_with(begun) && isWord(word)) {
         out.write(word + "\n");
      }
   }
}

CommandResult CommandRunner::runWords(std::vector<Kiln::String> words, int fd) const {
   if (words.empty()) {
      return {"no command: expected " + expectedKeywords()};
   }
   const Kiln::String keyword = words.front();
   if (!commandTypes_.contains(keyword)) {
      return {"unknown command '" + keyword.substr(0, 40) + "': expected " + expectedKeywords()};
   }
   const Kiln::Ptr<AgentCommandCallback> callback = callbackFor(keyword);
   if (!callback) {
      return {"nobody answers '" + keyword + "' yet: try again when the agent is up"};
   }
   words.erase(words.begin());
   return callback->command(words, fd);
}

bool CommandRunner::changes(std::string_view line) const {
   Kiln::ActivityLockAnchor::assertHeld();
   std::vector<Kiln::String> words = splitWords(line);
   if (words.empty() || lineToComplete(line)) {
      return false;
   }
   const Kiln::Ptr<AgentCommandCallback> callback = callbackFor(words.front());
   words.erase(words.begin());
   try {
      return callback && callback->changes(words);
   } catch (const std::exception&) { // nobody knows
      return true;
   }
}

CommandResult CommandRunner::run(std::string_view line, const CommandSpool& spool,
                                 const Kiln::String& who) const {
   Kiln::ActivityLockAnchor::assertHeld();
   const CommandOriginScope origin(who);
   CommandResult result;
   try {
      if (const auto begun = lineToComplete(line)) {
         completeLine(*begun, spool.fd());
      } else {
         result = runWords(splitWords(line), spool.fd());
      }
   } catch (const std::exception& error) {
      // Whatever a command throws, it must not bring the agent down.
      result.error = Kiln::String("the command failed: ") + error.what();
   }
   // An error of the command itself says more than that its output was cut.
   if (result.ok() && spool.isFull()) {
      result.error = "the output ends here, at its bound of " + std::to_string(spool.limit() >> 10U) +
                     " KiB: ask for one chip, interface or table, or with nonzero";
   }
   // It may quote what was typed, and goes to somebody's terminal as one line.
   result.error = Kiln::printable(result.error);
   return result;
}

} // namespace Agent

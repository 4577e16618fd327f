// Runs command lines.
#include "agent/CommandRunner.h"

#include "kiln/ActivityLock.h"

namespace Agent {

std::vector<Kiln::String> splitWords(std::string_view line) {
   constexpr std::string_view blanks = " \t\r\n\v\f";
   std::vector<Kiln::String> words;
   for (std::size_t begin = line.find_first_not_of(blanks); begin != std::string_view::npos;
        begin = line.find_first_not_of(blanks, begin)) {
      const std::size_t end = std::min(line.find_first_of(blanks, begin), line.size());
      words.emplace_back(line.substr(begin, end - begin));
      begin = end;
   }
   return words;
}

Kiln::String printableLine(Kiln::String text) {
   for (char& c : text) {
      const auto byte = static_cast<unsigned char>(c);
      if (byte < ' ' || byte == 0x7f) {
         c = '?';
      }
   }
   return text;
}

void CommandRunner::commandTypeIs(const Kiln::String& keyword, Kiln::String commandType) {
   commandTypes_.set(keyword, std::move(commandType));
}

Kiln::String CommandRunner::expectedKeywords() const {
   Kiln::String all;
   for (const auto& [keyword, type] : commandTypes_) {
      all += (all.empty() ? "" : ", ") + keyword;
   }
   return all;
}

CommandResult CommandRunner::runWords(std::vector<Kiln::String> words, int fd) const {
   if (words.empty()) {
      return {"no command: expected " + expectedKeywords()};
   }
   const Kiln::String keyword = words.front();
   const Kiln::String* type = commandTypes_.find(keyword);
   if (type == nullptr) {
      return {"unknown command '" + keyword.substr(0, 40) + "': expected " + expectedKeywords()};
   }
   const Kiln::Ptr<AgentCommandCallback> callback = directory_->agentCommandCallback(*type);
   if (!callback) {
      return {"nobody answers '" + keyword + "' yet: try again when the agent is up"};
   }
   words.erase(words.begin());
   return callback->command(words, fd);
}

CommandResult CommandRunner::run(std::string_view line, const CommandSpool& spool) const {
   Kiln::ActivityLockAnchor::assertHeld();
   CommandResult result;
   try {
      result = runWords(splitWords(line), spool.fd());
   } catch (const std::exception& error) {
      result.error = Kiln::String("the command failed: ") + error.what();
   }
   if (result.ok() && spool.isFull()) {
      result.error = "the output ends here, at its bound of " + std::to_string(spool.limit() >> 10U) +
                     " KiB: ask for one chip, interface or table, or with nonzero";
   }
   result.error = printableLine(std::move(result.error));
   return result;
}

} // namespace Agent

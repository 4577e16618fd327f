// Reads the words of a diagnostic counters command by the grammar of the command table.
#pragma once

#include "counters/cli/CommandTable.h"

#include <vector>

namespace ZelCounter {

// Made for one command. Under the activity lock.
class CommandParser {
 public:
   // Both outlive it. mgrCli gives completions their names, and tells a table's name from an option.
   CommandParser(const std::vector<Kiln::String>& words, const ZelCountersMgrCli& mgrCli);

   // Fills the command in and returns nothing, or returns what is wrong.
   Kiln::String parse(ZelCountersCommand* command);
   // After parse: what the next word may be.
   const std::vector<Kiln::String>& next() const { return next_; }

 private:
   using Words = std::vector<Kiln::String>;

   bool atEnd() const { return at_ == words_.size(); }
   void expect(const Words& words);
   Kiln::String understood() const;
   Kiln::String choose(const Words& all, bool mayEnd);

   Words nextKeywords() const;
   const CommandRow* completeRow() const;
   void take(const Kiln::String& keyword);

   bool parseChip();
   const CommandRow* parseKeywords();
   bool parseOperand(const CommandRow& row);
   bool parseStage();
   bool isTable(const CommandRow& row) const;
   void parseOptions(const CommandRow& row);
   bool parsePipe();
   bool parseTop();

   const Words& words_;
   const ZelCountersMgrCli& mgrCli_;
   std::size_t at_ = 0;                        // the next word
   std::size_t depth_ = 0;                     // how many keywords were taken
   std::vector<const CommandRow*> candidates_; // the rows that begin with them
   ZelCountersCommand* command_ = nullptr;
   Kiln::String error_;
   Words next_;
};

} // namespace ZelCounter

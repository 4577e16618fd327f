// The grammar of the diagnostic counters commands. A new command is a new row.
#pragma once

#include "counters/ZelCountersMgrCli.h"

#include <span>
#include <string_view>

namespace ZelCounter {

// An interface or a stage must be named; a table may be.
enum class Operand : U8 { none, interface, table, stage };

// Which options a command takes, combined.
struct Takes {
   enum Option : U8 { nothing = 0, nonZero = 1, pipe = 2, json = 4, top = 8, final = 16 };
};

struct CommandRow {
   std::string_view keywords;
   Operand operand;
   unsigned takes;   // Takes::Option
   bool needsTables; // chips without counter tables are left out
   ChipOperation operation;

   bool isClear() const { return keywords.starts_with("clear"); }
   // The keyword at a depth; empty beyond the last.
   std::string_view keywordAt(std::size_t depth) const;
};

// In the order in which errors and completions list the keywords. Static storage.
std::span<const CommandRow> commandTable();

} // namespace ZelCounter

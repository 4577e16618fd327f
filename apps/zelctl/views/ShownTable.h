// A show's content before it is laid out: tables that tell counters from the keys that name their rows.
#pragma once

#include "kiln/Types.h"

#include <optional>
#include <vector>

namespace ZelCtl {

struct ShownColumn {
   enum class Kind : U8 { key, counter, other }; // a row's keys identify it within its table
   Kiln::String heading;
   Kind kind = Kind::key;
};

struct ShownCell {
   Kiln::String text;
   std::optional<U64> count{}; // in a counter's column, where it is known
};

struct ShownRow {
   // One per column. A row without counts, such as one that can't be read, ends early in a text of any length.
   std::vector<ShownCell> cells;
   std::optional<double> sampled{}; // when, on the monotonic clock; none if unknown
};

struct ShownTable {
   Kiln::String title; // empty for none
   std::vector<ShownColumn> columns;
   std::vector<ShownRow> rows;
   std::vector<Kiln::String> notes{}; // lines below the table
};

} // namespace ZelCtl

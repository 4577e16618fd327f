// What a show shows, before anybody lays it out: tables whose counters are told apart from what names their
// rows.
#pragma once

#include "kiln/Types.h"

#include <optional>
#include <vector>

namespace ZelCtl {

struct ShownColumn {
   enum class Kind : U8 { key, counter, other }; // keys tell a row from the others of its table
   Kiln::String heading;
   Kind kind = Kind::key;
};

struct ShownCell {
   Kiln::String text;
   std::optional<U64> count{}; // of a counter's column, where it is known
};

struct ShownRow {
   // One a column. A row that has nothing to count ends early, in a text as long as it likes.
   std::vector<ShownCell> cells;
   std::optional<double> sampled{}; // on the monotonic clock, where the row knows it
};

struct ShownTable {
   Kiln::String title; // empty for none
   std::vector<ShownColumn> columns;
   std::vector<ShownRow> rows;
   std::vector<Kiln::String> notes{}; // lines below the table
};

} // namespace ZelCtl

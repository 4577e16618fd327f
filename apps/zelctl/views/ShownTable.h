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
   Kiln::String rateHeading = "/s"; // a counter's
   unsigned rateFactor = 1;         // from the counter's unit to the rate's: 8 from octets to bits
};

struct ShownCell {
   Kiln::String text;
   std::optional<U64> count{}; // in a counter's column, where it is known
};

// When a row was sampled, on the monotonic clock: between these two moments, as its age is known only so well.
struct SampleTime {
   double earliest;
   double latest;

   double middle() const { return (earliest + latest) / 2; }
};

struct ShownRow {
   // One per column. A row without counts, such as one that can't be read, ends early in a text of any length.
   std::vector<ShownCell> cells;
   std::optional<SampleTime> sampled{}; // none if that is unknown, or so long ago that nothing has a rate now
};

struct ShownTable {
   Kiln::String title; // empty for none
   std::vector<ShownColumn> columns;
   std::vector<ShownRow> rows;
   std::vector<Kiln::String> notes{}; // lines below the table
   bool isRanking = false;            // rows come and go by their rank, which is no news
};

} // namespace ZelCtl

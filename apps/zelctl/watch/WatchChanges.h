// What changed in a show from one round to the next, row by row.
#pragma once

#include "apps/zelctl/views/ShownTable.h"

#include <map>

namespace ZelCtl {

struct WatchedCell {
   Kiln::String text;
   bool hasChanged = false; // a counter's; its rate changes with it
   Kiln::String rate{};     // a second; "-" while it isn't known; empty where there is no counter
};

struct WatchedRow {
   enum class State : char { same = ' ', changed = '*', appeared = '+', gone = '-' };
   State state = State::same;
   bool hasEverChanged = false; // since the watch began
   std::vector<WatchedCell> cells;
};

struct WatchedTable {
   Kiln::String title;
   std::vector<ShownColumn> columns;
   std::vector<WatchedRow> rows;
   std::vector<Kiln::String> notes;
};

// Rows are known by their table's title (up to its colon and chip at least, whatever else it says) and their
// keys. A counter that went backwards began anew: it has changed, and has no rate. A row that knows when it
// was sampled is rated by that, and keeps its rate while it isn't sampled anew; others by the time of the
// round.
class WatchChanges {
 public:
   // `now` is on the monotonic clock. A row that is gone is in the answer once more, as it was last.
   std::vector<WatchedTable> compare(const std::vector<ShownTable>& tables, double now);

 private:
   struct Known {
      std::vector<std::optional<U64>> counts; // one a column
      double time = 0;
      bool isSampleTime = false;
      WatchedRow row; // as it was answered
   };
   struct KnownTable {
      Kiln::String title;
      std::vector<ShownColumn> columns;
      std::map<Kiln::String, Known> rows; // by their keys
   };

   static Known seen(const ShownTable& table, const ShownRow& row, double now, const Known* before);
   WatchedTable compareTable(const ShownTable& table, const Kiln::String& key, double now, KnownTable* known);

   bool isFirstRound_ = true;
   std::map<Kiln::String, KnownTable> tables_;
};

} // namespace ZelCtl

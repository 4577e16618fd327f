// Finds what changed in a show from one round to the next, row by row.
#pragma once

#include "apps/zelctl/views/ShownTable.h"

#include <map>

namespace ZelCtl {

struct WatchedCell {
   Kiln::String text;
   bool hasChanged = false; // only a counter's cell can
   Kiln::String rate{};     // per second; "-" if unknown; empty if the cell is not a counter's
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

// A row is identified by its keys and its table's title, without the part that says how old the record is. A counter
// that went backwards began anew: it has changed, and has no rate. The rate of a row that has a sample time is over
// the time between samples, and stays until the next sample; that of any other row is over the time between rounds.
class WatchChanges {
 public:
   // `now` is on the monotonic clock. A row that is gone is returned once more, with its last values.
   std::vector<WatchedTable> compare(const std::vector<ShownTable>& tables, double now);

 private:
   struct Known {
      std::vector<std::optional<U64>> counts; // one a column
      double time = 0;
      bool isSampleTime = false;
      WatchedRow row; // as it was returned
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

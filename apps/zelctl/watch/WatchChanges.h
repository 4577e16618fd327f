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

// A row is identified by its keys and its table's title, without the ages in it. A counter that went backwards began
// anew: it has changed, and has no rate. Rates are over the time between samples, never between rounds: a round that has
// nothing newer keeps them, and a row whose sample time is unknown has none.
class WatchChanges {
 public:
   // A row that is gone is returned once more, with its last values.
   std::vector<WatchedTable> compare(const std::vector<ShownTable>& tables);

 private:
   struct Known {
      std::vector<std::optional<U64>> counts; // one a column
      // The sample that the next rate is from: the last one that was certainly newer than the one before.
      std::vector<std::optional<U64>> sampledCounts;
      std::optional<SampleTime> sampled;
      WatchedRow row; // as it was returned
   };
   struct KnownTable {
      Kiln::String title;
      std::vector<ShownColumn> columns;
      std::map<Kiln::String, Known> rows; // by their keys
   };

   static Known seen(const ShownTable& table, const ShownRow& row, const Known* before);
   WatchedTable compareTable(const ShownTable& table, const Kiln::String& key, KnownTable* known);

   bool isFirstRound_ = true;
   std::map<Kiln::String, KnownTable> tables_;
};

} // namespace ZelCtl

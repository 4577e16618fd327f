// Compares rounds and computes rates.
#include "apps/zelctl/watch/WatchChanges.h"

#include <cmath>
#include <cstdio>

namespace ZelCtl {

namespace {

using Kiln::String;
using Kind = ShownColumn::Kind;
using State = WatchedRow::State;

constexpr const char* unknownRate = "-";

// Big rates have three digits and a unit, since a glance takes in no more. Slow ones have a fraction, and never less
// than 0.1, so that a drop every few seconds does not look like none.
String rateText(U64 step, double seconds) {
   constexpr double slow = 10;
   constexpr double wide = 99999.5;
   double rate = static_cast<double>(step) / seconds;
   char text[48];
   if (step == 0) {
      return "0";
   }
   if (rate < wide) {
      std::snprintf(text, sizeof text, rate < slow ? "%.1f" : "%.0f", std::max(rate, 0.1));
      return text;
   }
   const char* unit = "kMGTPE";
   for (rate /= 1000; rate >= 999.5 && unit[1] != '\0'; rate /= 1000) {
      ++unit;
   }
   std::snprintf(text, sizeof text,
                 rate < 9.995   ? "%.2f%c"
                 : rate < 99.95 ? "%.1f%c"
                                : "%.0f%c",
                 rate, *unit);
   return text;
}

String rowKey(const ShownTable& table, const ShownRow& row) {
   String key;
   for (std::size_t i = 0; i < row.cells.size() && i < table.columns.size(); ++i) {
      if (table.columns[i].kind == Kind::key) {
         key += row.cells[i].text + '\n';
      }
   }
   return key;
}

// The name, with a number if the map has it already.
template <class Map>
String freshKey(const Map& taken, const String& name) {
   String key = name;
   for (unsigned i = 2; taken.contains(key); ++i) {
      key = name + "\n" + std::to_string(i);
   }
   return key;
}

} // namespace

WatchChanges::Known WatchChanges::seen(const ShownTable& table, const ShownRow& row, double now,
                                       const Known* before) {
   constexpr double sameSample = 1e-6; // seconds: times computed from ages have rounding errors
   Known known{{}, row.sampled.value_or(now), row.sampled.has_value(), {}};
   const bool isComparable = before != nullptr && before->isSampleTime == known.isSampleTime;
   const double elapsed = isComparable ? known.time - before->time : 0;
   const bool isSame = isComparable && known.isSampleTime && std::fabs(elapsed) < sameSample;
   if (isSame) {
      known.time = before->time;
   }
   for (std::size_t i = 0; i < row.cells.size(); ++i) {
      const std::optional<U64> count = row.cells[i].count;
      known.counts.push_back(count);
      WatchedCell cell{row.cells[i].text};
      const bool isText = row.cells.size() < table.columns.size() && i + 1 == row.cells.size();
      if (i < table.columns.size() && table.columns[i].kind == Kind::counter && !isText) {
         const bool hadCell = before != nullptr && i < before->counts.size();
         const std::optional<U64> former = hadCell ? before->counts[i] : std::nullopt;
         cell.hasChanged = hadCell && former != count;
         const bool isRated = former && count && *count >= *former;
         if (isRated && isSame && *count == *former) {
            cell.rate = before->row.cells[i].rate;
         } else {
            cell.rate = isRated && elapsed > 0 ? rateText(*count - *former, elapsed) : unknownRate;
         }
      }
      known.row.hasEverChanged = known.row.hasEverChanged || cell.hasChanged;
      known.row.cells.push_back(std::move(cell));
   }
   known.row.state = known.row.hasEverChanged ? State::changed : State::same;
   if (before == nullptr) {
      known.row.state = State::appeared;
   } else {
      known.row.hasEverChanged = known.row.hasEverChanged || before->row.hasEverChanged;
   }
   return known;
}

WatchedTable WatchChanges::compareTable(const ShownTable& table, const String& key, double now,
                                        KnownTable* known) {
   WatchedTable watched{table.title, table.columns, {}, table.notes};
   const auto former = tables_.find(key);
   for (const ShownRow& row : table.rows) {
      const String name = freshKey(known->rows, rowKey(table, row));
      const Known* before = nullptr;
      if (former != tables_.end() && former->second.rows.contains(name)) {
         before = &former->second.rows.at(name);
      }
      Known& one = known->rows[name] = seen(table, row, now, before);
      if (isFirstRound_) {
         one.row.state = State::same;
      } else if (before == nullptr) {
         one.row.hasEverChanged = true;
      }
      watched.rows.push_back(one.row);
   }
   if (former != tables_.end()) {
      for (auto& [name, before] : former->second.rows) {
         if (!known->rows.contains(name)) {
            before.row.state = State::gone;
            watched.rows.push_back(before.row);
         }
      }
   }
   return watched;
}

std::vector<WatchedTable> WatchChanges::compare(const std::vector<ShownTable>& tables, double now) {
   std::map<String, KnownTable> known;
   std::vector<WatchedTable> watched;
   for (const ShownTable& table : tables) {
      // The rest of the title, how old the record is, changes from round to round.
      const String name = table.title.substr(0, table.title.find(": sampled "));
      const String key = freshKey(known, name);
      KnownTable& one = known[key] = {table.title, table.columns, {}};
      watched.push_back(compareTable(table, key, now, &one));
   }
   for (const auto& [key, before] : tables_) {
      if (!known.contains(key) && !before.rows.empty()) {
         KnownTable none;
         watched.push_back(compareTable({before.title, before.columns, {}, {}}, key, now, &none));
      }
   }
   tables_ = std::move(known);
   isFirstRound_ = false;
   return watched;
}

} // namespace ZelCtl

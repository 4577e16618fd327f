// Compares rounds and computes rates.
#include "apps/zelctl/watch/WatchChanges.h"

#include "apps/zelctl/views/Readable.h"

#include <algorithm>
#include <string_view>

namespace ZelCtl {

namespace {

using Kiln::String;
using Kind = ShownColumn::Kind;
using State = WatchedRow::State;

constexpr const char* unknownRate = "-";

// A title ends with how old a record is, or since when and by whose clear it counts, which changes from round to round.
String withoutAges(String title) {
   for (const std::string_view changing : {", sampled ", ", since the clear", ", never cleared"}) {
      title.resize(std::min(title.find(changing), title.size()));
   }
   return title;
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

WatchChanges::Known WatchChanges::seen(const ShownTable& table, const ShownRow& row, const Known* before) {
   Known known{{}, {}, row.sampled, {}};
   const bool isComparable = before != nullptr && before->sampled && row.sampled;
   const bool isNewer = isComparable && row.sampled->earliest > before->sampled->latest;
   const double elapsed = isNewer ? row.sampled->middle() - before->sampled->middle() : 0;
   for (std::size_t i = 0; i < row.cells.size(); ++i) {
      const std::optional<U64> count = row.cells[i].count;
      known.counts.push_back(count);
      WatchedCell cell{row.cells[i].text};
      const bool isText = row.cells.size() < table.columns.size() && i + 1 == row.cells.size();
      if (i < table.columns.size() && table.columns[i].kind == Kind::counter && !isText) {
         const bool hadCell = before != nullptr && i < before->counts.size();
         cell.hasChanged = hadCell && before->counts[i] != count;
         const std::optional<U64> former = hadCell && isComparable ? before->sampledCounts[i] : std::nullopt;
         if (!former || !count || *count < *former) {
            cell.rate = unknownRate;
         } else if (isNewer) {
            cell.rate =
                 rateText(static_cast<double>(*count - *former) / elapsed * table.columns[i].rateFactor);
         } else {
            cell.rate = before->row.cells[i].rate;
         }
      }
      known.row.hasEverChanged = known.row.hasEverChanged || cell.hasChanged;
      known.row.cells.push_back(std::move(cell));
   }
   known.sampledCounts = isComparable && !isNewer ? before->sampledCounts : known.counts;
   known.sampled = isComparable && !isNewer ? before->sampled : row.sampled;
   known.row.state = known.row.hasEverChanged ? State::changed : State::same;
   if (before == nullptr) {
      known.row.state = State::appeared;
   } else {
      known.row.hasEverChanged = known.row.hasEverChanged || before->row.hasEverChanged;
   }
   return known;
}

WatchedTable WatchChanges::compareTable(const ShownTable& table, const String& key, KnownTable* known) {
   WatchedTable watched{table.title, table.columns, {}, table.notes};
   const auto former = tables_.find(key);
   for (const ShownRow& row : table.rows) {
      const String name = freshKey(known->rows, rowKey(table, row));
      const Known* before = nullptr;
      if (former != tables_.end() && former->second.rows.contains(name)) {
         before = &former->second.rows.at(name);
      }
      Known& one = known->rows[name] = seen(table, row, before);
      if (isFirstRound_ || table.isRanking) {
         one.row.state = State::same;
      } else if (before == nullptr) {
         one.row.hasEverChanged = true;
      }
      watched.rows.push_back(one.row);
   }
   if (former != tables_.end() && !table.isRanking) {
      for (auto& [name, before] : former->second.rows) {
         if (!known->rows.contains(name)) {
            before.row.state = State::gone;
            watched.rows.push_back(before.row);
         }
      }
   }
   return watched;
}

std::vector<WatchedTable> WatchChanges::compare(const std::vector<ShownTable>& tables) {
   std::map<String, KnownTable> known;
   std::vector<WatchedTable> watched;
   for (const ShownTable& table : tables) {
      const String key = freshKey(known, withoutAges(table.title));
      KnownTable& one = known[key] = {table.title, table.columns, {}};
      watched.push_back(compareTable(table, key, &one));
   }
   for (const auto& [key, before] : tables_) {
      if (!known.contains(key) && !before.rows.empty()) {
         KnownTable none;
         watched.push_back(compareTable({before.title, before.columns, {}, {}}, key, &none));
      }
   }
   tables_ = std::move(known);
   isFirstRound_ = false;
   return watched;
}

} // namespace ZelCtl

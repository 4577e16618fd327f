// Writes a whole view, which is in memory already, and says what readings a chip's tables lack.
#include "counters/show/ShowOutput.h"

#include "kiln/Choices.h"

#include <algorithm>
#include <map>
#include <utility>

namespace ZelCounter {

namespace {

constexpr std::size_t namesInNote = 3;

Kiln::String listed(const std::vector<Kiln::String>& names) {
   if (names.size() <= namesInNote + 1) {
      return Kiln::joined(names, ", ");
   }
   return Kiln::joined({names.begin(), names.begin() + namesInNote}, ", ") + " and " +
          std::to_string(names.size() - namesInNote) + " more";
}

} // namespace

void ShowOutput::reading(const ToldReading& told, bool hasTable) {
   const auto known = std::ranges::find(readings_, told.what, &ToldReading::what);
   if (known == readings_.end()) {
      readings_.push_back(told);
   } else {
      known->state = known->state.with(told.state);
   }
   if (hasTable) {
      tableReading(told.state);
   }
}

// One line for each trouble, not one for each reading: a chip that is silent has hundreds.
void ShowOutput::tellReadings(const Kiln::String& chipName) {
   struct Troubled {
      std::vector<Kiln::String> names;
      double age = 0; // the oldest
   };
   const std::vector<ToldReading> readings = std::exchange(readings_, {});
   std::map<std::pair<Kiln::String, bool>, Troubled> byTrouble; // and whether they were ever read
   for (const auto& [what, state] : readings) {
      if (!state.trouble.empty()) {
         Troubled& troubled = byTrouble[{state.trouble, state.age.has_value()}];
         troubled.names.push_back(what);
         troubled.age = std::max(troubled.age, state.age.value_or(0));
      }
   }
   for (const auto& [trouble, troubled] : byTrouble) {
      const bool isWholeChip = troubled.names.size() == readings.size();
      chipNote(chipName + (isWholeChip ? "" : ", " + listed(troubled.names)) + ": " +
               (trouble.second ? "as of " + Kiln::durationText(troubled.age) + " ago" : "never read") + ": " +
               trouble.first);
   }
}

void ShowOutput::view(const TableView& table, TableLayout layout) {
   tableBegin({table.title, table.columns, layout});
   for (std::size_t i = 0; i < table.rows.size() && ok(); ++i) {
      row(table.rows[i]);
   }
   for (const Kiln::String& text : table.notes) {
      note(text);
   }
   for (const Kiln::String& text : table.unprintedNotes) {
      unprintedNote(text);
   }
   for (const ToldReading& told : table.readings) {
      reading(told);
   }
   tableEnd();
}

} // namespace ZelCounter

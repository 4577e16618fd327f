// Writes a whole view, which is in memory already, and says what readings a chip's tables lack.
#include "counters/show/ShowOutput.h"

#include "kiln/ActivityLock.h"
#include "kiln/Choices.h"
#include "kiln/Time.h"

#include <algorithm>
#include <map>
#include <utility>

namespace ZelCounter {

namespace {

constexpr std::size_t namesInNote = 3;
constexpr std::size_t rowsPerLook = 16; // at the clock

Kiln::String listed(const std::vector<Kiln::String>& names) {
   if (names.size() <= namesInNote + 1) {
      return Kiln::joined(names, ", ");
   }
   return Kiln::joined({names.begin(), names.begin() + namesInNote}, ", ") + " and " +
          std::to_string(names.size() - namesInNote) + " more";
}

bool isEarlier(const Cleared& a, const Cleared& b) {
   return b && (!a || a->time < b->time);
}

Kiln::String clearText(const Agent::CommandOrigin& clear) {
   return Kiln::durationText(Kiln::System::currentTime() - clear.time) + " ago by " + clear.who;
}

Kiln::String sinceText(const Cleared& cleared) {
   return cleared ? ", since the clear " + clearText(*cleared) : ", never cleared";
}

} // namespace

void ShowOutput::reading(const ToldReading& told, bool hasTable) {
   const auto known = std::ranges::find(readings_, told.what, &ToldReading::what);
   if (known == readings_.end()) {
      readings_.push_back(told);
   } else {
      known->state = known->state.with(told.state);
      known->cleared = std::max(known->cleared, told.cleared, isEarlier);
   }
   if (hasTable) {
      tableReading(told);
   }
}

void ShowOutput::changed(const Kiln::String& text) {
   if (std::ranges::find(changes_, text) == changes_.end()) {
      changes_.push_back(text);
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
   std::map<Kiln::String, std::vector<Kiln::String>> byClear;
   for (const Kiln::String& change : std::exchange(changes_, {})) {
      chipNote(change);
   }
   for (const auto& [what, state, cleared] : readings) {
      if (!state.trouble.empty()) {
         Troubled& troubled = byTrouble[{state.trouble, state.age.has_value()}];
         troubled.names.push_back(what);
         troubled.age = std::max(troubled.age, state.age.value_or(0));
      }
      if (cleared) {
         byClear[clearText(*cleared)].push_back(what);
      }
   }
   const auto tell = [&](const std::vector<Kiln::String>& names, const Kiln::String& text) {
      const bool isWholeChip = names.size() == readings.size();
      chipNote(chipName + (isWholeChip ? "" : ", " + listed(names)) + ": " + text);
   };
   for (const auto& [trouble, troubled] : byTrouble) {
      tell(troubled.names,
           (trouble.second ? "as of " + Kiln::durationText(troubled.age) + " ago" : "never read") + ": " +
                trouble.first);
   }
   for (const auto& [clear, names] : byClear) {
      tell(names, "cleared " + clear);
   }
}

void ShowOutput::view(const TableView& table, TableLayout layout) {
   // A title has room for one clear.
   const bool isClearInTitle = table.isSinceClear && !table.readings.empty() &&
                               std::ranges::adjacent_find(table.readings, std::ranges::not_equal_to(),
                                                          &ToldReading::cleared) == table.readings.end();
   tableBegin({table.title, table.columns, layout, HeadingTime::atOnce,
               isClearInTitle                                  ? sinceText(table.readings.front().cleared)
               : table.isSinceClear && !table.readings.empty() ? ", since the clears below"
                                                               : ""});
   for (std::size_t i = 0; i < table.rows.size() && ok(); ++i) {
      row(table.rows[i]);
      if (i % rowsPerLook == 0) {
         Kiln::ActivityLockAnchor::giveWay("show");
      }
   }
   for (const Kiln::String& text : table.notes) {
      note(text);
   }
   for (const Kiln::String& text : table.unprintedNotes) {
      unprintedNote(text);
   }
   for (ToldReading told : table.readings) {
      tableReading(told);
      if (isClearInTitle) {
         told.cleared.reset();
      }
      reading(told, false);
   }
   tableEnd();
}

} // namespace ZelCounter

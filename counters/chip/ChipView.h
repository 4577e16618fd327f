// What the views of a chip share. A view keeps the counts of one kind, shows them and clears them.
#pragma once

#include "counters/chip/ChipAccess.h"
#include "counters/show/ShowOutput.h"
#include "vex/Continuity.h"

namespace ZelCounter {

// Part of the per-chip object, whose operations forward to its views' and document them.
class ChipView {
 public:
   explicit ChipView(ChipAccess& chip) : chip_(chip) {}
   ChipView(const ChipView&) = delete;
   ChipView& operator=(const ChipView&) = delete;

 protected:
   ~ChipView() = default;

   ChipAccess& chip() const { return chip_; }

   // True for a chip whose construction is not complete, once the output says so.
   bool answeredUninitialized(ShowOutput& out) const {
      if (!chip_.initialized()) {
         out.uninitialized();
      }
      return !chip_.initialized();
   }
   ToldReading told(const Kiln::String& what, const ReadingKey& key, const Cleared& cleared = {}) const {
      return {what, chip_.readings().state(key), cleared};
   }
   static Kiln::String pipeText(U16 pipe) { return "pipe " + std::to_string(pipe); }
   static Kiln::String tableText(const ZlResourceInfo::ZlTableCounter& info, U16 pipe) {
      return pipe == ZelId::ZelPipeId::allPipes() ? info.name : info.name + " " + pipeText(pipe);
   }
   // Of a counter table's block, which is read from the SDK's copy, which is synced from the hardware.
   ToldReading toldTable(const ZlResourceInfo::ZlTableCounter& info, U16 pipe,
                         const Cleared& cleared = {}) const {
      const U32 id = chip_.zlResourceInfoIntf()->zlTableCounterIndex(info.name);
      const Readings& readings = chip_.readings();
      const ReadingState copy = readings.state({ReadingKey::Kind::tableCopy, info.tableHandle, pipe});
      const ReadingState sync = readings.state({ReadingKey::Kind::tableSync, id, pipe});
      // A copy that was read now is as old as the last sync.
      return {tableText(info, pipe), copy.trouble.empty() ? sync : copy.with(sync), cleared};
   }
   // Of reads that failed before a clear: what they did not get is not cleared, and will be shown.
   static void tellErrors(ShowOutput& out, const std::vector<Kiln::String>& errors) {
      for (const Kiln::String& error : errors) {
         out.noTable("", error);
      }
   }

 private:
   ChipAccess& chip_;
};

// One of a place's counts since the last clear, or that it was never read.
template <std::size_t n>
TableView::Cell cellOf(const Vex::ShownCounts<n>& counts, std::size_t place, std::size_t value = 0) {
   return counts.isRead(place) ? TableView::Cell(counts.sinceClear(place, value)) : TableView::Unread();
}

// What a failed read leaves to be shown of a place: the end of its note.
template <std::size_t n>
const char* shownInstead(const Vex::ShownCounts<n>& counts, std::size_t place) {
   return counts.isRead(place) ? ": shown as last read" : ": never read";
}

} // namespace ZelCounter

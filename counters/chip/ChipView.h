// What the views of a chip share. A view keeps the counts of one kind, shows them and clears them.
#pragma once

#include "counters/chip/ChipAccess.h"
#include "counters/show/ShowOutput.h"

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

 private:
   ChipAccess& chip_;
};

// A count since the last clear, or that it was never read. Counts is a ClearableCounts; a template, so that this room
// need not know the one of drops.
template <class Counts>
TableView::Cell cellOf(const Counts& counts, std::size_t index) {
   return counts.isRead(index) ? TableView::Cell(counts.sinceClear(index)) : TableView::Unread();
}

} // namespace ZelCounter

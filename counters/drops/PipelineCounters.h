// The packet-path counters of a chip: how many packets each stage of its pipes took in, passed on and dropped.
#pragma once

#include "counters/chip/ChipView.h"
#include "counters/drops/ClearableCounts.h"

namespace ZelCounter {

class PipelineCounters : public ChipView {
 public:
   using ChipView::ChipView;

   // The names of the stages, by number.
   static std::span<const char* const> stages();
   // Read as they are asked for. A stage is one of the names' (assertion), a pipe one that exists; none: every pipe.
   void showAll(ShowOutput& out, bool nonZeroOnly, std::optional<U16> pipe = {});
   void show(ShowOutput& out, U32 stage, bool nonZeroOnly, std::optional<U16> pipe = {});
   void clearAll(ShowOutput& out);

 private:
   // Without a stage or a pipe every one.
   TableView view(std::optional<U32> stage, std::optional<U16> pipe, bool nonZeroOnly);
   // Empty, or what went wrong.
   Kiln::String read(U16 pipe, U32 stage);

   ClearableCounts counts_;
};

} // namespace ZelCounter

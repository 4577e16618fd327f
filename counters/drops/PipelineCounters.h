// The packet-path counters of a chip: how many packets each stage of its pipes took in, passed on and dropped.
#pragma once

#include "counters/chip/ChipView.h"
#include "counters/drops/CliPortDropData.h"

namespace ZelCounter {

class PipelineCounters : public ChipView {
 public:
   // The counts are shared, and kept longer than the chip.
   PipelineCounters(ChipAccess& chip, const Kiln::Ptr<CliPortDropData>& data)
        : ChipView(chip), data_(data), counts_(data->pipeCountsIs(chip.deviceId()).stages) {}

   // The names of the stages, by number.
   static std::span<const char* const> stages();
   // Read when asked for. The stage is an index of stages() (assertion), the pipe one that exists; without one, every
   // pipe.
   void showAll(ShowOutput& out, bool nonZeroOnly, std::optional<U16> pipe = {});
   void show(ShowOutput& out, U32 stage, bool nonZeroOnly, std::optional<U16> pipe = {});
   void clearAll(ShowOutput& out);
   // What can't be read stays as it is, and is told.
   std::vector<Kiln::String> readAll();

 private:
   // Without a stage, every stage; without a pipe, every pipe.
   TableView view(std::optional<U32> stage, std::optional<U16> pipe, bool nonZeroOnly);
   // Returns what went wrong, or nothing.
   Kiln::String read(U16 pipe, U32 stage);

   Kiln::Ptr<CliPortDropData> data_;
   ClearedCounts<3>& counts_; // of data_
};

} // namespace ZelCounter

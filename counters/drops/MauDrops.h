// The drops in a chip's match-action units (MAUs) and deparsers.
#pragma once

#include "counters/chip/ChipView.h"
#include "counters/drops/CliPortDropData.h"
#include "sdk/bf_types.h"

namespace ZelCounter {

class MauDrops : public ChipView {
 public:
   // The counts are shared, and kept longer than the chip.
   MauDrops(ChipAccess& chip, const Kiln::Ptr<CliPortDropData>& data)
        : ChipView(chip), data_(data), counts_(data->pipeCountsIs(chip.deviceId()).mauDrops) {}

   // What can't be read keeps its last count, with a note below the rows.
   void fetchAll();
   // As fetched last: of one pipe or of all, or of the pipe of an interface, which shares its counts with the pipe's
   // others.
   void showAll(ShowOutput& out, bool nonZeroOnly, std::optional<U16> pipe = {}) const;
   void show(ShowOutput& out, const Pelt::IntfId& intf, bool nonZeroOnly) const;
   void clearAll(ShowOutput& out);

   // One place's count, from the SDK; nothing else is told of it. The place is one of PipeDropCounters.
   static bf_status_t read(ZelId::ZelDevId device, U16 pipe, std::size_t place, U64* drops);

 private:
   TableView view(const Pelt::IntfId& intf, std::optional<U16> pipe, bool nonZeroOnly) const;

   Kiln::Ptr<CliPortDropData> data_;
   ClearedCounts<1>& counts_; // of data_
   bool isFetched_ = false;
   std::vector<std::pair<U16, Kiln::String>> errors_; // of the last fetch, by pipe
};

} // namespace ZelCounter

// Drops by interface: where on their way frames were dropped, and why.
#pragma once

#include "counters/chip/ChipView.h"
#include "counters/drops/CliPortDropData.h"

#include <span>

namespace ZelCounter {

class PortDrops : public ChipView {
 public:
   // Forgets the counts of earlier chips of the same device id. The data is shared and kept; null: it keeps its own.
   PortDrops(ChipAccess& chip, Kiln::Ptr<CliPortDropData> data);

   void showAll(ShowOutput& out, bool nonZeroOnly);
   void show(ShowOutput& out, const Pelt::IntfId& intf, bool nonZeroOnly);
   void clearAll(ShowOutput& out);
   // A counter table of one pipe, or of all, is set to zero. Does nothing for a table that doesn't hold drops.
   void tableWritten(const ZlResourceInfo::ZlTableCounter& info, ZelId::ZelPipeId pipe);

 private:
   // Without an interface, all of the chip's.
   TableView view(const Pelt::IntfId& intf, bool nonZeroOnly);
   std::vector<ChipAccess::Port> ports(const Pelt::IntfId& intf) const;
   Kiln::String tableError(ZlDrop::Point point, const ZlResourceInfo::ZlTableCounter** info) const;
   std::vector<Kiln::String> read(std::span<const ChipAccess::Port> ports);
   Kiln::String readPipe(ZlDrop::Point point, const ZlResourceInfo::ZlTableCounter& info,
                         std::span<const ChipAccess::Port> ports);
   PortDropCounts& counts(U16 devicePort) { return data_->portDropsIs(chip().deviceId(), devicePort); }

   Kiln::Ptr<CliPortDropData> data_;
};

} // namespace ZelCounter

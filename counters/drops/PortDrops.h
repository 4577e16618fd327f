// Drops by interface: where on their way frames were dropped, and why.
#pragma once

#include "counters/chip/ChipView.h"
#include "counters/drops/CliPortDropData.h"

#include <span>

namespace ZelCounter {

class PortDrops : public ChipView {
 public:
   // The data is shared, and kept longer than the chip.
   PortDrops(ChipAccess& chip, Kiln::Ptr<CliPortDropData> data) : ChipView(chip), data_(std::move(data)) {}

   void showAll(ShowOutput& out, bool nonZeroOnly);
   void show(ShowOutput& out, const Pelt::IntfId& intf, bool nonZeroOnly);
   void clearAll(ShowOutput& out);
   // What can't be read stays as it is.
   void readAll() { read(ports({})); }
   // A counter table of one pipe, or of all, is about to be set to zero, or has been. Both do nothing for a table that
   // doesn't hold drops.
   void readOnceMore(ShowOutput& out, const ZlResourceInfo::ZlTableCounter& info, ZelId::ZelPipeId pipe);
   void tableWritten(const ZlResourceInfo::ZlTableCounter& info, ZelId::ZelPipeId pipe);

 private:
   // Without an interface, all of the chip's.
   TableView view(const Pelt::IntfId& intf, bool nonZeroOnly);
   std::vector<ChipAccess::Port> ports(const Pelt::IntfId& intf) const;
   Kiln::String tableError(ZlDrop::Point point, const ZlResourceInfo::ZlTableCounter** info) const;
   std::vector<Kiln::String> read(std::span<const ChipAccess::Port> ports);
   std::vector<Kiln::String> readPoint(ZlDrop::Point point, std::span<const ChipAccess::Port> ports);
   Kiln::String readPipe(ZlDrop::Point point, const ZlResourceInfo::ZlTableCounter& info,
                         std::span<const ChipAccess::Port> ports);
   PortDropCounts& counts(const ChipAccess::Port& port) {
      return data_->portDropsIs(chip().deviceId(), port.devicePort, port.intf);
   }

   Kiln::Ptr<CliPortDropData> data_;
};

} // namespace ZelCounter

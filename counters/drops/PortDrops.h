// Drops by interface: where on their way frames were dropped, and why.
#pragma once

#include "counters/chip/ChipView.h"
#include "counters/drops/CliPortDropData.h"

#include <limits>
#include <span>

namespace ZelCounter {

class Slices;

// Which drops are shown.
struct DropOptions {
   Pelt::IntfId intf = {}; // empty: of all the chip's ports
   bool nonZeroOnly = false;
   // Where a frame was lost in the end, too. Each was counted with its reason before.
   bool isFinalShown = false;
   std::size_t top = std::numeric_limits<std::size_t>::max(); // so many ports, and reasons, the worst first
};

class PortDrops : public ChipView {
 public:
   // The data is shared, and kept longer than the chip.
   PortDrops(ChipAccess& chip, Kiln::Ptr<CliPortDropData> data) : ChipView(chip), data_(std::move(data)) {}

   void showAll(ShowOutput& out, bool nonZeroOnly);
   // First how much was dropped and why, then by port.
   void show(ShowOutput& out, const DropOptions& options);
   void clearAll(ShowOutput& out);
   // What can't be read stays as it is.
   void readAll() { read(ports({})); }
   // A counter table of one pipe, or of all, is about to be set to zero, or has been. Both do nothing for a table that
   // doesn't hold drops.
   void readOnceMore(ShowOutput& out, const ZlResourceInfo::ZlTableCounter& info, ZelId::ZelPipeId pipe);
   void tableWritten(const ZlResourceInfo::ZlTableCounter& info, ZelId::ZelPipeId pipe);
   // How many of the table's entries, from the first on, count drops: 0 for a table that doesn't hold any.
   static U32 entriesOf(const ZlResourceInfo::ZlTableCounter& info);

 private:
   struct Drop;
   struct PortTotal;
   PortTotal addDrops(const ChipAccess::Port& port, const DropOptions& options, std::vector<Drop>* drops);
   std::vector<Drop> drops(std::span<const ChipAccess::Port> ports, const DropOptions& options);
   TableView reasonsView(std::span<const Drop> drops, const DropOptions& options) const;
   TableView portsView(std::span<const Drop> drops, const DropOptions& options, Slices& slices) const;
   std::vector<ToldReading> toldReadings(std::span<const ChipAccess::Port> ports) const;
   // Without an interface, all of the chip's.
   std::vector<ChipAccess::Port> ports(const Pelt::IntfId& intf) const;
   Kiln::String tableError(ZlDrop::Point point, const ZlResourceInfo::ZlTableCounter** info) const;
   std::vector<Kiln::String> read(std::span<const ChipAccess::Port> ports);
   std::vector<Kiln::String> readPoint(ZlDrop::Point point, std::span<const ChipAccess::Port> ports);
   Kiln::String readPipe(ZlDrop::Point point, const ZlResourceInfo::ZlTableCounter& info,
                         std::span<const ChipAccess::Port> ports);
   PortDropCounts& counts(const ChipAccess::Port& port) {
      return data_->portDropsIs(chip().deviceId(), port.devicePort, port.intf);
   }
   Clears& clears() const { return data_->portClearsIs(chip().deviceId()); }

   Kiln::Ptr<CliPortDropData> data_;
};

} // namespace ZelCounter

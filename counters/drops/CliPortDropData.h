// The drops of ports as the commands show them: as read last, and as at the last clear.
#pragma once

#include "counters/drops/ClearableCounts.h"
#include "kiln/Collections.h"
#include "kiln/Ptr.h"
#include "zel/ZelId.h"
#include "zl/ZlDropReasons.h"

namespace ZelCounter {

// Counts of a port by point, then by reason. They belong to the place: an interface that moves doesn't take them along.
using PortDropCounts = std::array<ClearableCounts, ZlDrop::tables.size()>;

class CliPortDropData : public Kiln::PtrInterface {
 public:
   // The counts of a device port; new ones are 0.
   PortDropCounts& portDropsIs(ZelId::ZelDevId devId, U16 devicePort) {
      const auto key = std::pair(devId, devicePort);
      if (!ports_.contains(key)) {
         ports_.set(key, {});
      }
      return *ports_.find(key);
   }
   // A point's table of one pipe, or of all, has been set to zero.
   void tableWritten(ZelId::ZelDevId devId, ZelId::ZelPipeId pipe, ZlDrop::Point point) {
      for (auto& [key, drops] : ports_) {
         if (key.first == devId &&
             (pipe == ZelId::ZelPipeId::allPipes() || pipe == ZlPort::pipeOf(key.second))) {
            drops[static_cast<std::size_t>(point)].begin();
         }
      }
   }
   // The chip has gone, or is a new one.
   void deviceDel(ZelId::ZelDevId devId) {
      for (const auto& key : ports_.keys()) {
         if (key.first == devId) {
            ports_.erase(key);
         }
      }
   }

 private:
   Kiln::OrderedMap<std::pair<ZelId::ZelDevId, U16>, PortDropCounts> ports_;
};

} // namespace ZelCounter

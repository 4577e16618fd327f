// What the views of a chip's packet path count: drops by port, and the counts of its pipes.
#pragma once

#include "kiln/Collections.h"
#include "kiln/Ptr.h"
#include "vex/Continuity.h"
#include "zel/ZelId.h"
#include "zl/ZlDropReasons.h"

namespace ZelCounter {

// Counts of a port by point, then by reason. They belong to the place: an interface that moves doesn't take them along.
using PortDropCounts = std::array<Vex::ShownCounts<1>, ZlDrop::tables.size()>;

// Counts of a chip's pipes, by a place that each view numbers itself.
struct PipeCounts {
   Vex::ShownCounts<3> stages;         // in, out, dropped
   Vex::ShownCounts<1> mauDrops;       // by stage and deparser
   Vex::ShownCounts<2> trafficManager; // packets, bytes
};

// Shared by all chips of an agent, and kept when one goes: what was counted and cleared stands when it comes back.
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
   // The counts of a device's pipes; new ones are 0.
   PipeCounts& pipeCountsIs(ZelId::ZelDevId devId) {
      if (!pipes_.contains(devId)) {
         pipes_.set(devId, {});
      }
      return *pipes_.find(devId);
   }
   // A point's table of one pipe, or of all, has been set to zero: that clears its counts.
   void tableWritten(ZelId::ZelDevId devId, ZelId::ZelPipeId pipe, ZlDrop::Point point) {
      for (auto& [key, drops] : ports_) {
         if (key.first == devId &&
             (pipe == ZelId::ZelPipeId::allPipes() || pipe == ZlPort::pipeOf(key.second))) {
            drops[static_cast<std::size_t>(point)].zeroed();
         }
      }
   }

 private:
   Kiln::OrderedMap<std::pair<ZelId::ZelDevId, U16>, PortDropCounts> ports_;
   Kiln::OrderedMap<ZelId::ZelDevId, PipeCounts> pipes_;
};

} // namespace ZelCounter

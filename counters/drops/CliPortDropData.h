// What the views of a chip's packet path count: drops by port, and the counts of its pipes.
#pragma once

#include "counters/chip/Clears.h"
#include "kiln/Collections.h"
#include "kiln/Ptr.h"
#include "vex/Continuity.h"
#include "zel/Pelt.h"
#include "zel/ZelId.h"
#include "zl/ZlDropReasons.h"

namespace ZelCounter {

// Counts of a port by point, then by reason.
using PortDropCounts = std::array<Vex::ShownCounts<1>, ZlDrop::tables.size()>;

// Counts that are cleared together.
template <std::size_t n>
class ClearedCounts : public Vex::ShownCounts<n> {
 public:
   void clear() {
      Vex::ShownCounts<n>::clear();
      cleared_ = Agent::CommandOrigin::current();
   }
   const Cleared& cleared() const { return cleared_; }

 private:
   Cleared cleared_;
};

// Counts of a chip's pipes, by a place that each view numbers itself.
struct PipeCounts {
   ClearedCounts<3> stages;         // in, out, dropped
   ClearedCounts<1> mauDrops;       // by stage and deparser
   ClearedCounts<2> trafficManager; // packets, bytes
};

// Shared by all chips of an agent, and kept when one goes: what was counted and cleared stands when it comes back.
class CliPortDropData : public Kiln::PtrInterface {
 public:
   // The counts of an interface at a device port; new ones are 0.
   PortDropCounts& portDropsIs(ZelId::ZelDevId devId, U16 devicePort, const Pelt::IntfId& intf) {
      const auto key = std::pair(devId, devicePort);
      if (!ports_.contains(key)) {
         ports_.set(key, {intf, {}});
      }
      PortDrops& port = *ports_.find(key);
      if (port.intf != intf) {
         port.leave();
         port.intf = intf;
      }
      return port.counts;
   }
   // An interface got this port, or none: what it counted at others ends.
   void portIs(const Pelt::IntfId& intf, ZelId::ZelDevId devId, U16 devicePort) {
      for (auto& [key, port] : ports_) {
         if (port.intf == intf && key != std::pair(devId, devicePort)) {
            port.leave();
         }
      }
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
      for (auto& [key, port] : ports_) {
         if (key.first == devId &&
             (pipe == ZelId::ZelPipeId::allPipes() || pipe == ZlPort::pipeOf(key.second))) {
            port.counts[static_cast<std::size_t>(point)].zeroed();
         }
      }
      portClearsIs(devId).cleared(static_cast<U32>(point), pipe);
   }
   // When a device's port drops were cleared, by the number of the point.
   Clears& portClearsIs(ZelId::ZelDevId devId) {
      if (!portClears_.contains(devId)) {
         portClears_.set(devId, {});
      }
      return *portClears_.find(devId);
   }

 private:
   struct PortDrops {
      Pelt::IntfId intf; // empty once it has left
      PortDropCounts counts;

      void leave() {
         intf = {};
         for (Vex::ShownCounts<1>& atPoint : counts) {
            atPoint.leave();
         }
      }
   };

   Kiln::OrderedMap<std::pair<ZelId::ZelDevId, U16>, PortDrops> ports_;
   Kiln::OrderedMap<ZelId::ZelDevId, PipeCounts> pipes_;
   Kiln::OrderedMap<ZelId::ZelDevId, Clears> portClears_;
};

} // namespace ZelCounter

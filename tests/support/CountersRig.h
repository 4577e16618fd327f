// The rig of the library's tests: simulated time, soft chips, the platform's status and a counters manager.
#pragma once

#include "counters/ZelCounters.h"
#include "counters/ZelCountersMgr.h"
#include "kiln/ActivityLock.h"
#include "softchip/SoftChip.h"
#include "tests/support/SimulatedTime.h"
#include "zl/ZelSdk.h"

#include <string>

namespace ZelTest {

class CountersRig {
 public:
   CountersRig() {
      smRunning = 0; // an earlier test's chips may have left another value
      status->hasNotificationActiveIs(true);
   }
   CountersRig(const CountersRig&) = delete;
   CountersRig& operator=(const CountersRig&) = delete;
   ~CountersRig() { deleteManager(); }

   void makeManager() {
      const auto lock = Kiln::ActivityLockAnchor::lock();
      mgr = ZelCounter::zelCountersMgrFactory(status, mounts, common, commands, tm, tmClear, nullptr);
   }
   void deleteManager() {
      const auto lock = Kiln::ActivityLockAnchor::lock();
      mgr = nullptr;
   }

   // Adds a chip to the manager, and to the fleet if it isn't there.
   void addChip(U8 devId, const char* name, unsigned pipes = 2) {
      const auto lock = Kiln::ActivityLockAnchor::lock();
      if (fleet.chip(devId) == nullptr) {
         fleet.chipAdd({"chip" + std::to_string(devId), devId, pipes});
      }
      auto chipStatus = Kiln::allocate<ZelSlice::ChipStatus>();
      chipStatus->highestLogicalPipeIdIs(static_cast<U16>(pipes - 1));
      chipStatus->internalIntfIs(Pelt::IntfId(("Internal" + std::to_string(devId + 1)).c_str()));
      mgr->addChip(devId, name, {"soft"}, ZelSdk::getZelSessionHdl(), nullptr, nullptr, chipStatus);
   }

   void deleteChip(const char* name) {
      const auto lock = Kiln::ActivityLockAnchor::lock();
      mgr->deleteChip(name);
   }

   Pelt::IntfId addPort(const char* name, U8 devId, U16 devicePort) {
      const auto lock = Kiln::ActivityLockAnchor::lock();
      const Pelt::IntfId intf(name);
      if (SoftChip::Chip* chip = fleet.chip(devId)) {
         chip->portAdd(devicePort);
      }
      status->portInfoIs(intf, {devId, devicePort});
      return intf;
   }

   static void advance(double seconds) { SimulatedTime::advance(seconds); }

   SoftChip::Chip& chip(U8 devId) { return *fleet.chip(devId); }
   const Kiln::Ptr<ZelCounter::ZelCounters>& counters(U8 devId) { return mgr->zelCounters(devId); }
   // The latest raw value that the library has; 0 if it has none.
   U64 last(U8 devId, const Pelt::IntfId& intf, std::size_t index) {
      const auto snapshot = counters(devId)->macCountersLast(intf);
      return snapshot ? snapshot->counters(index) : 0;
   }

   const SimulatedTime time;
   SoftChip::Fleet fleet;
   Kiln::Ptr<ZelSystem::SystemStatus> status = Kiln::allocate<ZelSystem::SystemStatus>();
   Kiln::Ptr<ZelCounter::CountersMounts> mounts = Kiln::allocate<ZelCounter::CountersMounts>();
   Kiln::Ptr<Vex::VexCommonSmData> common = Kiln::allocate<Vex::VexCommonSmData>();
   Kiln::Ptr<Agent::AgentCommandRequestDirSm> commands = Kiln::allocate<Agent::AgentCommandRequestDirSm>();
   Kiln::Ptr<ZelQos::TmCountersData> tm = Kiln::allocate<ZelQos::TmCountersData>();
   Kiln::Ptr<ZelQos::TmCountersData> tmClear = Kiln::allocate<ZelQos::TmCountersData>();
   Kiln::Ptr<ZelCounter::ZelCountersMgr> mgr;
};

} // namespace ZelTest

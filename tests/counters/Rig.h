// The rig of the library's tests: simulated time, soft chips, the platform's status and a counters manager over them.
#pragma once

#include "counters/ZelCountersMgr.h"
#include "counters/ZelCountersMgrSm.h"
#include "kiln/ActivityLock.h"
#include "kiln/ActivityManager.h"
#include "softchip/SoftChip.h"
#include "zl/ZelSdk.h"

#include <memory>
#include <string>

namespace Test {

// Sets an environment variable for the life of the object.
class Environment {
 public:
   Environment(const char* name, const char* value) : name_(name) { setenv(name, value, 1); }
   Environment(const Environment&) = delete;
   Environment& operator=(const Environment&) = delete;
   ~Environment() { unsetenv(name_); }

 private:
   const char* name_;
};

// What an operation prints to its descriptor.
template <class Operation>
std::string printed(Operation operation) {
   std::FILE* const file = std::tmpfile();
   operation(static_cast<U32>(fileno(file)));
   std::string text(static_cast<std::size_t>(lseek(fileno(file), 0, SEEK_END)), '\0');
   const ssize_t size = pread(fileno(file), text.data(), text.size(), 0);
   std::fclose(file);
   text.resize(static_cast<std::size_t>(size));
   return text;
}

class Rig {
 public:
   Rig() {
      Kiln::System::timeSourceIs(Kiln::allocate<Kiln::SimulatedTime>());
      Kiln::ActivityManager::instanceDel();
      fleet_ = std::make_unique<SoftChip::Fleet>();
      status = Kiln::allocate<ZelSystem::SystemStatus>();
      status->hasNotificationActiveIs(true);
   }
   Rig(const Rig&) = delete;
   Rig& operator=(const Rig&) = delete;

   ~Rig() {
      {
         const auto lock = Kiln::ActivityLockAnchor::lock();
         mgr = nullptr;
      }
      fleet_ = nullptr;
      smRunning = 0;
      Kiln::ActivityManager::instanceDel();
      Kiln::System::timeSourceIs(nullptr);
   }

   void makeManager() {
      const auto lock = Kiln::ActivityLockAnchor::lock();
      mgr = ZelCounter::zelCountersMgrFactory(status, mounts, common, commands, tm, tmClear, nullptr);
   }

   // A chip of the soft fleet, known to the manager.
   void addChip(U8 devId, const char* name, unsigned pipes = 2) {
      const auto lock = Kiln::ActivityLockAnchor::lock();
      if (fleet_->chip(devId) == nullptr) {
         fleet_->chipAdd({"chip" + std::to_string(devId), devId, pipes});
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
      if (SoftChip::Chip* chip = fleet_->chip(devId)) {
         chip->portAdd(devicePort);
      }
      status->portInfoIs(intf, {devId, devicePort});
      return intf;
   }

   void advance(double seconds) { Kiln::ActivityManager::instance()->advance(seconds); }

   SoftChip::Fleet& fleet() { return *fleet_; }
   SoftChip::Chip& chip(U8 devId) { return *fleet_->chip(devId); }
   const Kiln::Ptr<ZelCounter::ZelCounters>& counters(U8 devId) { return mgr->zelCounters(devId); }
   // The latest raw value that the library has; 0 where it has none.
   U64 last(U8 devId, const Pelt::IntfId& intf, std::size_t index) {
      const auto snapshot = counters(devId)->macCountersLast(intf);
      return snapshot ? snapshot->counters(index) : 0;
   }

   Kiln::Ptr<ZelSystem::SystemStatus> status;
   Kiln::Ptr<ZelCounter::CountersMounts> mounts = Kiln::allocate<ZelCounter::CountersMounts>();
   Kiln::Ptr<Vex::VexCommonSmData> common = Kiln::allocate<Vex::VexCommonSmData>();
   Kiln::Ptr<Agent::AgentCommandRequestDirSm> commands = Kiln::allocate<Agent::AgentCommandRequestDirSm>();
   Kiln::Ptr<ZelQos::TmCountersData> tm = Kiln::allocate<ZelQos::TmCountersData>();
   Kiln::Ptr<ZelQos::TmCountersData> tmClear = Kiln::allocate<ZelQos::TmCountersData>();
   Kiln::Ptr<ZelCounter::ZelCountersMgr> mgr;

 private:
   std::unique_ptr<SoftChip::Fleet> fleet_;
};

} // namespace Test

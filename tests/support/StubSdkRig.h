// The rig of tests with the stub SDK: chips over it, in simulated time.
#pragma once

#include "counters/ZelCounters.h"
#include "counters/queues/PipeIntfQueueCounterSm.h"
#include "counters/tables/HwTableCountersSm.h"
#include "counters/tables/ZelCountersSm.h"
#include "kiln/ActivityLock.h"
#include "tests/support/Environment.h"
#include "tests/support/Output.h"
#include "tests/support/SimulatedTime.h"
#include "tests/support/StubSdk.h"
#include "zl/ZelSdk.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace ZelTest {

// Handles of the tables that every chip needs; a counter handle is its table handle + 0x1000.
constexpr U32 pdpHandle = 0xD0;
constexpr U32 queueHandle = 0xE0;

enum Counts { packetsOnly, bytesOnly, packetsAndBytes };

inline StubSdk::Table makeTable(const char* name, U32 handle, U32 size, bool direct, Counts counts,
                                bool symmetric = true) {
   StubSdk::Table table;
   table.info = {name, handle, handle + 0x1000, size, direct, counts != packetsOnly, counts != bytesOnly};
   table.symmetric = symmetric;
   return table;
}

// The ruler of that width between the parts of a table.
inline std::string ruler(std::size_t width) {
   return std::string(width, '=') + "\n";
}

class StubSdkRig : public ::testing::Test {
 protected:
   StubSdkRig() {
      StubSdk::reset();
      smRunning = 0; // an earlier test's chips may have left another value
      for (ZelId::ZelDevId dev = 0; dev < ZelId::maxDevices; ++dev) { // these outlive the chips
         tm->countersByDevIdIs(dev);
         tmClear->countersByDevIdIs(dev);
      }
   }
   ~StubSdkRig() override {
      const auto lock = Kiln::ActivityLockAnchor::lock();
      chips.clear();
   }

   // A catalogue that begins with pdpClassCount (id 0) and egressPortQueueCount (id 1).
   static Kiln::Ptr<StubSdk::Catalogue> makeCatalogue(int dev) {
      auto catalogue = Kiln::allocate<StubSdk::Catalogue>();
      catalogue->add(dev, makeTable("pdpClassCount", pdpHandle, 2336, false, packetsOnly, false));
      catalogue->add(dev,
                     makeTable("egressPortQueueCount", queueHandle, 4096, false, packetsAndBytes, false));
      catalogue->addMatch("queueCounters", 0xB1);
      catalogue->addMatch("pdpPolicy", 0xB2);
      catalogue->addMatch("l2DmacClassify", 0xB3);
      return catalogue;
   }

   ZelCounter::ZelCounters& addChip(int dev, U16 highestPipe, Kiln::Ptr<StubSdk::Catalogue> catalogue) {
      auto status = Kiln::allocate<ZelSlice::ChipStatus>();
      status->highestLogicalPipeIdIs(highestPipe);
      chipStatus[dev] = status;
      ZelCounter::ZelCounters::Context context{};
      context.devId = static_cast<ZelId::ZelDevId>(dev);
      context.chipName = "Zel" + std::to_string(dev);
      context.sessionId = 7;
      context.chipStatus = status;
      context.systemStatus = systemStatus;
      context.tmCountersData = tm;
      context.tmCountersDataLastClear = tmClear;
      context.cliPortDropData = dropData;
      context.chipPublisher = publisher;
      context.zlPdIntf = Kiln::allocate<StubSdk::Pd>();
      context.zlResourceInfoIntf = catalogue;
      context.devProfile.chipTypeName = "stub";
      const auto lock = Kiln::ActivityLockAnchor::lock();
      chips[dev] = ZelCounter::zelCountersFactory(std::move(context));
      return *chips[dev];
   }

   Pelt::IntfId addPort(const std::string& name, U16 devicePort, int dev = 0) {
      const Pelt::IntfId intf(name.c_str());
      systemStatus->portInfoIs(intf, {static_cast<ZelId::ZelDevId>(dev), devicePort});
      return intf;
   }

   void deleteChip(int dev) {
      const auto lock = Kiln::ActivityLockAnchor::lock();
      chips.at(dev)->stop();
      chips.erase(dev);
   }

   static void advance(double seconds) { SimulatedTime::advance(seconds); }

   // Refuses the queue pollers' requests, so that only the scheduler's are seen.
   static void refuseQueueSyncs() {
      for (U16 pipe = 0; pipe <= ZelId::ZelPipeId::max(); ++pipe) {
         StubSdk::sdk().statuses[{"databaseSync", queueHandle, pipe}] = 1;
      }
   }

   // The sync requests since the last call, without those for the queue table, which the queue pollers make.
   static std::vector<std::string> takeSyncs() {
      std::vector<std::string> syncs;
      for (std::string& call : StubSdk::sdk().calls) {
         if (call.rfind("sync", 0) == 0 && call.find(" E0") == std::string::npos) {
            syncs.push_back(std::move(call));
         }
      }
      StubSdk::sdk().calls.clear();
      return syncs;
   }

   const SimulatedTime time;
   Kiln::Ptr<ZelSystem::SystemStatus> systemStatus = Kiln::allocate<ZelSystem::SystemStatus>();
   Kiln::Ptr<ZelQos::TmCountersData> tm = Kiln::allocate<ZelQos::TmCountersData>();
   Kiln::Ptr<ZelQos::TmCountersData> tmClear = Kiln::allocate<ZelQos::TmCountersData>();
   Kiln::Ptr<ZelCounter::CliPortDropData> dropData = Kiln::allocate<ZelCounter::CliPortDropData>();
   Kiln::Ptr<Vex::ChipPublisher> publisher; // null: nothing is published
   std::map<int, Kiln::Ptr<ZelSlice::ChipStatus>> chipStatus;
   std::map<int, Kiln::Ptr<ZelCounter::ZelCounters>> chips;
};

} // namespace ZelTest

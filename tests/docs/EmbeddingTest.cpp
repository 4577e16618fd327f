// The code of docs/embedding.md, compiled and run over the stub SDK.
#include "agent/CommandChannel.h"
#include "counters/ZelCountersMgr.h"
#include "kiln/ActivityLock.h"
#include "kiln/ActivityManager.h"
#include "kiln/OperatorLog.h"
#include "tests/support/LoggedMessages.h"
#include "tests/support/StubSdkRig.h"
#include "tests/support/TemporaryFolder.h"
#include "vex/VexL3Intf.h"
#include "zl/ZelSdk.h"

#include <cstdio>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <optional>

namespace {

// The P4 program's tables, filled from the compiler's output or the SDK before the chip is added.
class Program : public ZlResourceInfo::ZlResourceInfoIntf {
 public:
   Program(std::vector<ZlResourceInfo::ZlTableCounter> counters, std::vector<ZlResourceInfo::ZlTable> tables)
        : counters_(std::move(counters)), tables_(std::move(tables)) {}

   U32 zlTableCountersNum() const override { return static_cast<U32>(counters_.size()); }
   const ZlResourceInfo::ZlTableCounter* zlTableCounter(U32 id) const override {
      return id < counters_.size() ? &counters_[id] : nullptr;
   }
   const std::vector<ZlResourceInfo::ZlTableCounter>* zlTableCounters() const override { return &counters_; }
   U32 zlTableCounterIndex(const Kiln::String& name) const override { return indexOf(counters_, name); }
   U32 zlTableCounterField(const Kiln::String& name, ZlResourceInfo::ZlCounterFieldId) const override {
      const ZlResourceInfo::ZlTableCounter* const info = zlTableCounter(zlTableCounterIndex(name));
      return info != nullptr ? info->tableHandle : ZlResourceInfo::notFound;
   }
   U32 zlTableIndex(const Kiln::String& name) const override { return indexOf(tables_, name); }
   const ZlResourceInfo::ZlTable* zlTable(U32 index) const override {
      return index < tables_.size() ? &tables_[index] : nullptr;
   }

 private:
   template <class Tables>
   static U32 indexOf(const Tables& tables, const Kiln::String& name) {
      for (std::size_t i = 0; i < tables.size(); ++i) {
         if (tables[i].name == name) {
            return static_cast<U32>(i);
         }
      }
      return ZlResourceInfo::notFound;
   }

   std::vector<ZlResourceInfo::ZlTableCounter> counters_;
   std::vector<ZlResourceInfo::ZlTable> tables_;
};

Kiln::Ptr<Program> programOf(U32 pdpHandle, U32 queueHandle) {
   return Kiln::allocate<Program>(std::vector<ZlResourceInfo::ZlTableCounter>{{.name = "pdpClassCount",
                                                                               .tableHandle = pdpHandle,
                                                                               .counterHandle = 0x10D0,
                                                                               .size = 2336,
                                                                               .packets = true},
                                                                              {.name = "egressPortQueueCount",
                                                                               .tableHandle = queueHandle,
                                                                               .counterHandle = 0x10E0,
                                                                               .size = 4096,
                                                                               .bytes = true,
                                                                               .packets = true}},
                                  std::vector<ZlResourceInfo::ZlTable>{});
}

constexpr ZelId::ZelDevId device = 0;

// What an agent keeps. Made and destroyed under the activity lock.
struct YourAgent {
   explicit YourAgent(const Silo::Store& store) : tables(Vex::openSharedTables(store)) {
      systemStatus->hasNotificationActiveIs(true);
      ports->hasNotificationActiveIs(true);
      vlans->hasNotificationActiveIs(true);
      auto mounts = Kiln::allocate<ZelCounter::CountersMounts>();
      mounts->ethPhyIntfStatusDirIs(ports);
      mounts->vlanIntfStatusDirIs(vlans);
      mounts->allIntfCountersIs(tables.allIntfCounters);
      mounts->allIntfClearCountersIs(tables.allIntfClearCounters);
      mounts->allIntfQueueCountersIs(tables.allIntfQueueCounters);
      mounts->allIntfClearQueueCountersIs(tables.allIntfClearQueueCounters);
      mounts->allVlanIntfCountersIs(tables.allVlanIntfCounters);
      mounts->subIntfCountersDirIs(tables.subIntfCountersDir);
      mounts->subIntfCountersSnapshotDirIs(tables.subIntfCountersSnapshotDir);
      mounts->intfAllNatCounterDirIs(tables.intfAllNatCounterDir);
      mounts->qosPolicyDropCountSiloTableIs(Kiln::allocate<Silo::ZelSystem::P4CounterTable>());
      mounts->writerConfigIs(Kiln::allocate<Vex::Counters::WriterConfig>());
      mgr = ZelCounter::zelCountersMgrFactory(systemStatus, mounts, Kiln::allocate<Vex::VexCommonSmData>(),
                                              commands, Kiln::allocate<ZelQos::TmCountersData>(),
                                              Kiln::allocate<ZelQos::TmCountersData>(),
                                              Kiln::allocate<ZelCounter::CliPortDropData>());
   }

   void addChip(const Kiln::Ptr<Program>& program, const Kiln::Ptr<ZlPd::ZlPdIntf>& pd) {
      systemStatus->chipCapabilitiesIs("two-pipe chip", {.vlanCounters = pd != nullptr});
      chipStatus->highestLogicalPipeIdIs(1);
      chipStatus->hasNotificationActiveIs(true);
      mgr->addChip(device, "Chip0", {"two-pipe chip"}, ZelSdk::getZelSessionHdl(), pd, program, chipStatus);
   }

   void addPort(const Pelt::IntfId& intf, U16 devicePort) {
      systemStatus->portInfoIs(intf, {device, devicePort}); // polled from here on
      chipStatus->portToIntfIdIs(devicePort, intf);         // its PDP classes
      ports->speedIs(intf, 100'000'000'000);                // bit/s: more than that is marked suspect
      ports->intfStatusIs(intf, true);                      // published from here on
   }
   void deletePort(const Pelt::IntfId& intf, U16 devicePort) {
      ports->intfStatusDel(intf);
      chipStatus->portToIntfIdDel(devicePort);
      systemStatus->portInfoDel(intf);
   }

   void addVlanIntf(const Pelt::IntfId& intf, U32 vlan) {
      mgr->vexL3IntfData()->vexL3IntfTable()->intfIdToL3IdIs(intf, vlan); // programmed on every chip
      vlans->intfStatusIs(intf, true);                                    // published from here on
   }

   Vex::SharedTables tables;
   Kiln::Ptr<ZelSystem::SystemStatus> systemStatus = Kiln::allocate<ZelSystem::SystemStatus>();
   Kiln::Ptr<Interface::EthPhyIntfStatusDir> ports = Kiln::allocate<Interface::EthPhyIntfStatusDir>();
   Kiln::Ptr<Interface::VlanIntfStatusDir> vlans = Kiln::allocate<Interface::VlanIntfStatusDir>();
   Kiln::Ptr<ZelSlice::ChipStatus> chipStatus = Kiln::allocate<ZelSlice::ChipStatus>();
   Kiln::Ptr<Agent::AgentCommandRequestDirSm> commands = Kiln::allocate<Agent::AgentCommandRequestDirSm>();
   Kiln::Ptr<ZelCounter::ZelCountersMgr> mgr;
};

void logToStandardError() {
   Kiln::OperatorLog::instance().sinkIs([](const Kiln::OperatorLog::Entry& entry) {
      std::fprintf(stderr, "%s: %s\n", entry.message->id, entry.text.c_str());
   });
}

void runYourAgent(const Silo::Store& store, const Kiln::String& socketPath, const Kiln::Ptr<Program>& program,
                  const Kiln::Ptr<ZlPd::ZlPdIntf>& pd) {
   Kiln::threadSafePtrModeIs(true); // before the SDK has a thread that calls back
   const auto manager = Kiln::ActivityManager::instance();
   auto lock = Kiln::ActivityLockAnchor::lock();
   std::optional<YourAgent> agent(std::in_place, store);
   agent->addChip(program, pd);
   agent->addPort(Pelt::IntfId("Ethernet1"), 128 + 4);
   agent->mgr->forgetAbsentInterfaces(); // records of an earlier process
   const auto runner = Kiln::allocate<Agent::CommandRunner>(agent->commands);
   runner->commandTypeIs("counters", "ZelCountersCli");
   std::optional<Agent::CommandChannel> channel(std::in_place, manager, runner, socketPath);

   lock.giveUp(); // the loop takes the lock itself, and gives it up only to sleep
   manager->run();

   const auto atTheEnd = Kiln::ActivityLockAnchor::lock();
   channel.reset();
   agent.reset(); // reads once more what was counted: the SDK has to answer still
}

class Embedding : public ZelTest::StubSdkRig {
 protected:
   Embedding()
        : catalogue(makeCatalogue(device)), program(programOf(ZelTest::pdpHandle, ZelTest::queueHandle)) {}

   const ZelTest::TemporaryFolder folder;
   const Silo::Store store = Silo::Store::directory(folder.path());
   Kiln::Ptr<StubSdk::Catalogue> catalogue; // what the stub has
   Kiln::Ptr<Program> program;
};

TEST_F(Embedding, ProgramAnswersByNameAndNumber) {
   EXPECT_EQ(program->zlTableCounterIndex("egressPortQueueCount"), 1U);
   EXPECT_EQ(program->zlTableCounter(1)->tableHandle, ZelTest::queueHandle);
   EXPECT_EQ(program->zlTableCounterField("pdpClassCount", ZlResourceInfo::ZlCounterFieldId::tableHandle),
             ZelTest::pdpHandle);
   EXPECT_EQ(program->zlTableCounterIndex("other"), ZlResourceInfo::notFound);
   EXPECT_EQ(program->zlTableIndex("other"), ZlResourceInfo::notFound);
}

TEST_F(Embedding, LoopRunsWithTheLockGivenUpUntilItIsStopped) {
   Kiln::System::timeSourceIs(nullptr); // real time, as an agent has it
   Kiln::ActivityManager::instanceDel();
   struct Stop : Kiln::Clock::Notifiee {
      using Notifiee::Notifiee;
      void onTime() override { Kiln::ActivityManager::instance()->stop(); }
   } stop(Kiln::activityManagerClock());
   {
      const auto lock = Kiln::ActivityLockAnchor::lock();
      stop.timeMinIs(Kiln::System::currentTime());
   }
   logToStandardError();
   runYourAgent(store, folder.path() + "/socket", program, nullptr);
   EXPECT_TRUE(Kiln::ActivityManager::instance()->isStopping());
   EXPECT_FALSE(Kiln::ActivityLockAnchor::isHeldByThisThread());
   Kiln::threadSafePtrModeIs(false);
   Kiln::OperatorLog::instance().sinkIs({});
}

TEST_F(Embedding, PortIsPublishedWhileItIsThere) {
   const auto lock = Kiln::ActivityLockAnchor::lock();
   YourAgent agent(store);
   agent.addChip(program, nullptr);
   const Pelt::IntfId intf("Ethernet1");
   agent.addPort(intf, 132);
   StubSdk::sdk().inlineDefault = true;
   advance(5.0);
   EXPECT_TRUE(agent.tables.allIntfQueueCounters->table().has("Ethernet1"));
   agent.deletePort(intf, 132);
   EXPECT_FALSE(agent.tables.allIntfCounters->table().has("Ethernet1"));
}

// As docs/embedding.md says of chips that can do more than their program.
TEST_F(Embedding, ProgramWithoutWhatTheLibraryNeedsStops) {
   const auto add = [&](const ZelSystem::ChipCapabilities& capabilities, const Kiln::Ptr<Program>& of) {
      const auto lock = Kiln::ActivityLockAnchor::lock();
      YourAgent agent(store);
      agent.systemStatus->chipCapabilitiesIs("chip", capabilities);
      agent.mgr->addChip(device, "Chip0", {"chip"}, 0, nullptr, of, agent.chipStatus);
   };
   const auto dropsOnly =
        Kiln::allocate<Program>(std::vector<ZlResourceInfo::ZlTableCounter>{{.name = "ingressPortDropCount",
                                                                             .tableHandle = 1,
                                                                             .counterHandle = 2,
                                                                             .size = 2048,
                                                                             .packets = true}},
                                std::vector<ZlResourceInfo::ZlTable>{});
   EXPECT_DEATH(add({}, dropsOnly), "pdpClassCountId != 0xFFFFFFF");
   EXPECT_DEATH(add({.qosPolicyCounter = true}, program), "tableIndex != 0xFFFFFFF");
   EXPECT_DEATH(add({.vlanCounters = true}, nullptr), "systemStatus_ && zlResourceInfoIntf_");
   EXPECT_DEATH(add({.vlanCounters = true}, program), "tableIndex != 0xFFFFFFF");
}

TEST_F(Embedding, MissingMountStopsOnlyWhatIsCountedThere) {
   const auto lock = Kiln::ActivityLockAnchor::lock();
   const auto mgr = ZelCounter::zelCountersMgrFactory(
        systemStatus, Kiln::allocate<ZelCounter::CountersMounts>(), nullptr,
        Kiln::allocate<Agent::AgentCommandRequestDirSm>(), nullptr, nullptr, nullptr);
   mgr->addChip(device, "Chip0", {"chip"}, 0, nullptr, program, nullptr);
   advance(5.0);
   const auto& l3Intfs = mgr->vexL3IntfData()->vexL3IntfTable();
   EXPECT_DEATH(l3Intfs->intfIdToL3IdIs(Pelt::IntfId("Vlan10"), 10), "natCounter.instance\\(\\) != 0");
   addPort("Ethernet1", 4);
   EXPECT_DEATH(StubSdk::sdk().deliverAll(), "writerConfig\\(\\)");
}

TEST_F(Embedding, ProgramWithoutQueuesOrDropsGoesOn) {
   const auto lock = Kiln::ActivityLockAnchor::lock();
   YourAgent agent(store);
   agent.addChip(
        Kiln::allocate<Program>(std::vector<ZlResourceInfo::ZlTableCounter>{*program->zlTableCounter(0)},
                                std::vector<ZlResourceInfo::ZlTable>{}),
        nullptr);
   agent.addPort(Pelt::IntfId("Ethernet1"), 132);
   StubSdk::sdk().inlineDefault = true;
   takeSyncs();
   advance(5.0);
   EXPECT_FALSE(takeSyncs().empty());
   EXPECT_FALSE(agent.tables.allIntfQueueCounters->table().has("Ethernet1"));
}

TEST_F(Embedding, RefusedVlanEntryIsToldToTheOperatorAndWaitedOut) {
   const auto lock = Kiln::ActivityLockAnchor::lock();
   ZelTest::LoggedMessages logged;
   YourAgent agent(store);
   const auto vlanProgram = Kiln::allocate<Program>(
        *program->zlTableCounters(),
        std::vector<ZlResourceInfo::ZlTable>{{"ingL2DomainCount", 0xC1}, {"egrL2DomainCount", 0xC2}});
   agent.addChip(vlanProgram, Kiln::allocate<StubSdk::Pd>()); // whose tables are always full
   agent.addVlanIntf(Pelt::IntfId("Vlan10"), 10);
   EXPECT_THAT(logged.take(), testing::ElementsAre(testing::HasSubstr("ZEL_COUNTERS_COUNTER_RESOURCE_FULL")));
}

} // namespace

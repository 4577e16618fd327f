// The code of docs/embedding.md, compiled and run over the stub SDK.
#include "agent/CommandChannel.h"
#include "agent/CommandSocket.h"
#include "counters/ZelCountersMgr.h"
#include "counters/chip/SdkStatus.h"
#include "kiln/ActivityLock.h"
#include "kiln/ActivityManager.h"
#include "kiln/OperatorLog.h"
#include "kiln/TextOutput.h"
#include "tests/support/LoggedMessages.h"
#include "tests/support/Manual.h"
#include "tests/support/StubSdkRig.h"
#include "tests/support/TemporaryFolder.h"
#include "vex/VexL3Intf.h"
#include "zl/ZelSdk.h"

#include <csignal>
#include <cstdio>
#include <functional>
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

class FanCommand : public Agent::AgentCommandCallback {
 public:
   using AgentCommandCallback::AgentCommandCallback;

   Agent::CommandResult command(const std::vector<Kiln::String>& words, int fd) override {
      if (words != std::vector<Kiln::String>{"show"}) {
         return {"expected 'show'"};
      }
      Kiln::TextOutput(fd).write("fan 1: 7200 rpm\n");
      return {};
   }
};

// What an agent keeps. Made and destroyed under the activity lock.
struct YourAgent {
   explicit YourAgent(const Silo::Store& store) : tables(Vex::openSharedTables(store)) {
      const auto classes = Kiln::allocate<ZelQos::QosToZelPdpClassMapping>();
      classes->zelPdpClassIs("bgp", ZelQos::PdpClassId(3)); // as the policy of the P4 program numbers them
      systemStatus->qosToZelPdpClassMappingIs(classes);
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
      mounts->chipTablesIs(tables.chipTables);
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
      ports->intfStatusDel(intf); // its record goes, with its clear and its queues
      ports->speedDel(intf);
      systemStatus->portInfoDel(intf); // polled no more
      chipStatus->portToIntfIdDel(devicePort);
   }

   // `waitForReads` is yours: it returns when your SDK has completed what it was asked, or after a second.
   void retireChip(const Kiln::String& name, const std::function<void()>& waitForReads) {
      mgr->requestHwCountersPolling();                    // every port of every chip
      Kiln::ActivityLockAnchor::yieldWhile(waitForReads); // asserts that the lock is held exactly once
      mgr->deleteChip(name);                              // the rest, from the SDK's copy
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

Kiln::ActivityManager* signalled = nullptr;

void stopOnSignal() {
   signalled = Kiln::ActivityManager::instance().ptr(); // here, since a handler must not ask for it
   std::signal(SIGTERM, [](int) { signalled->stop(); });
}

Kiln::String commandSocket() {
   Agent::prepareDefaultSocketFolder(); // nothing to do if ZEL_SOCKET is set
   return Agent::defaultSocketPath();   // where zelctl looks
}

void addFanCommand(const Kiln::Ptr<Agent::AgentCommandRequestDirSm>& commands,
                   const Kiln::Ptr<Agent::CommandRunner>& runner) {
   commands->agentCommandCallbackIs(Kiln::allocate<FanCommand>("fans", "FanCommand"));
   runner->commandTypeIs("fans", "FanCommand"); // the first word of its lines
}

void runYourAgent(const Silo::Store& store, const Kiln::String& socketPath, const Kiln::Ptr<Program>& program,
                  const Kiln::Ptr<ZlPd::ZlPdIntf>& pd) {
   Kiln::threadSafePtrModeIs(true); // before the SDK has a thread that calls back
   stopOnSignal();
   const auto manager = Kiln::ActivityManager::instance();
   auto lock = Kiln::ActivityLockAnchor::lock();
   std::optional<YourAgent> agent(std::in_place, store);
   agent->addChip(program, pd);
   agent->addPort(Pelt::IntfId("Ethernet1"), 128 + 4);
   agent->mgr->forgetAbsentInterfaces(); // records of an earlier process
   const auto runner = Kiln::allocate<Agent::CommandRunner>(agent->commands);
   runner->commandTypeIs("counters", "ZelCountersCli");
   addFanCommand(agent->commands, runner);
   std::optional<Agent::CommandChannel> channel(std::in_place, manager, runner, socketPath);

   lock.giveUp(); // the loop takes the lock itself
   manager->run();

   const auto atTheEnd = Kiln::ActivityLockAnchor::lock();
   channel.reset();
   agent.reset(); // deletes the chips: the SDK has to answer still
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

TEST_F(Embedding, LoopRunsWithTheLockGivenUpUntilItIsStopped) {
   Kiln::System::timeSourceIs(nullptr); // real time, as an agent has it
   Kiln::ActivityManager::instanceDel();
   struct Stop : Kiln::Clock::Notifiee {
      using Notifiee::Notifiee;
      void onTime() override { std::raise(SIGTERM); }
   } stop(Kiln::activityManagerClock());
   {
      const auto lock = Kiln::ActivityLockAnchor::lock();
      stop.timeMinIs(Kiln::System::currentTime());
   }
   logToStandardError();
   const Kiln::String socket = folder.path() + "/socket";
   const ZelTest::Environment environment("ZEL_SOCKET", socket.c_str());
   EXPECT_EQ(commandSocket(), socket);
   runYourAgent(store, commandSocket(), program, nullptr);
   std::signal(SIGTERM, SIG_DFL);
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

// The first total of a port whose counters all have the same value.
U64 total(const YourAgent& agent, const char* intf) {
   return agent.tables.allIntfCounters->table().sampleOrDefault(Silo::Key(intf)).record.totals.front();
}

// Takes the port's next reading.
void read(U64 value) {
   ASSERT_EQ(StubSdk::sdk().portReads.size(), 1U);
   StubSdk::sdk().portReads.front().deliver(value);
   StubSdk::sdk().portReads.clear();
}

TEST_F(Embedding, ChipThatGoesByPlanHasItsPortsReadOnceMore) {
   const auto lock = Kiln::ActivityLockAnchor::lock();
   YourAgent agent(store);
   agent.addChip(program, nullptr);
   agent.addPort(Pelt::IntfId("Ethernet1"), 132);
   StubSdk::sdk().takesPortReads = true;
   advance(2.0);
   read(1000);
   agent.retireChip("Chip0", [] {
      EXPECT_FALSE(Kiln::ActivityLockAnchor::isHeldByThisThread());
      read(1500);
   });
   EXPECT_EQ(total(agent, "Ethernet1"), 1500U);
   EXPECT_TRUE(agent.mgr->zelCounters().empty());
}

TEST_F(Embedding, DeletionAsksNoPortAndKeepsItsRecord) {
   const auto lock = Kiln::ActivityLockAnchor::lock();
   YourAgent agent(store);
   agent.addChip(program, nullptr);
   agent.addPort(Pelt::IntfId("Ethernet1"), 132);
   StubSdk::sdk().takesPortReads = true;
   advance(2.0);
   read(1000);
   agent.mgr->deleteChip("Chip0");
   EXPECT_THAT(StubSdk::sdk().portReads, testing::IsEmpty());
   EXPECT_TRUE(agent.tables.allIntfCounters->table().has("Ethernet1"));

   // Counting goes on when it comes back: from below, what it counted before its first reading is only compared with.
   agent.addChip(program, nullptr);
   advance(2.0);
   read(400);
   EXPECT_EQ(total(agent, "Ethernet1"), 1000U);
   advance(2.0);
   read(450);
   EXPECT_EQ(total(agent, "Ethernet1"), 1050U);
}

TEST_F(Embedding, OwnCommandIsRunByItsFirstWord) {
   const auto lock = Kiln::ActivityLockAnchor::lock();
   const auto commands = Kiln::allocate<Agent::AgentCommandRequestDirSm>();
   const auto runner = Kiln::allocate<Agent::CommandRunner>(commands);
   addFanCommand(commands, runner);
   const Agent::CommandSpool answer;
   EXPECT_TRUE(runner->run("fans show", answer, "the test").ok());
   EXPECT_EQ(runner->run("fans stop", answer, "the test").error, "expected 'show'");
   EXPECT_EQ(ZelTest::printed([&](U32 fd) {
                Kiln::TextOutput out(static_cast<int>(fd));
                answer.copyTo(out);
             }),
             "fan 1: 7200 rpm\n");
}

TEST_F(Embedding, GuideListsTheTextsOfAllStatuses) {
   int status = 0;
   for (const auto& row : ZelTest::manualRows("embedding.md", "## Statuses")) {
      for (std::size_t cell = 0; cell + 1 < row.size() && !row[cell].empty(); cell += 2, ++status) {
         EXPECT_EQ(row[cell], std::to_string(status));
         EXPECT_EQ(row[cell + 1], ZelCounter::sdkStatusText(status));
      }
   }
   EXPECT_STREQ(ZelCounter::sdkStatusText(status), "Unknown error");
}

// As docs/embedding.md says of chips that can do more than their program.
TEST_F(Embedding, ProgramWithoutWhatTheLibraryNeedsStops) {
   const auto add = [&](const ZelSystem::ChipCapabilities& capabilities, const Kiln::Ptr<Program>& of) {
      const auto lock = Kiln::ActivityLockAnchor::lock();
      YourAgent agent(store);
      agent.systemStatus->chipCapabilitiesIs("chip", capabilities);
      agent.mgr->addChip(device, "Chip0", {"chip"}, 0, nullptr, of, agent.chipStatus);
   };
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

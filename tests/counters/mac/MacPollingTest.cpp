// MAC polling: which ports are read, what a completion does however it comes, and the fake counter.
#include "counters/chip/SdkStatus.h"
#include "counters/helper/ZelCountersHelper.h"
#include "kiln/RingLog.h"
#include "tests/support/CountersRig.h"
#include "tests/support/Environment.h"

#include <cstdlib>
#include <gmock/gmock.h>
#include <thread>

namespace {

using namespace ZelTest;

using SoftChip::CompletionMode;

constexpr CompletionMode inlined{CompletionMode::Kind::inlined};
constexpr CompletionMode deferred{CompletionMode::Kind::deferred};
constexpr CompletionMode onThread{CompletionMode::Kind::thread};
constexpr CompletionMode held{CompletionMode::Kind::held};

class MacPolling : public testing::Test {
 protected:
   MacPolling() {
      rig.makeManager();
      rig.addChip(0, "Zel0");
      rig.addChip(1, "Zel1");
   }

   CountersRig rig;
};

// Waits until every completion was delivered, including those on the delivery thread.
void drain(CountersRig& rig) {
   while (rig.fleet.completions().outstanding() != 0) {
      std::this_thread::yield();
   }
}

TEST_F(MacPolling, StoresAllCountersHoweverTheCompletionComes) {
   Kiln::threadSafePtrModeIs(true);
   const auto port = rig.addPort("Ethernet1", 0, 129);
   U64 value = 100;
   for (const CompletionMode& mode : {inlined, deferred, onThread}) {
      rig.fleet.completions().modeIs(mode);
      for (unsigned i = 0; i < BF_NUM_RMON_COUNTERS; ++i) {
         rig.chip(0).rmonIs(129, i, ++value);
      }
      rig.advance(2.0);
      drain(rig);
      const auto lock = Kiln::ActivityLockAnchor::lock();
      for (unsigned i = 0; i < BF_NUM_RMON_COUNTERS; ++i) {
         EXPECT_EQ(rig.last(0, port, i), value - (BF_NUM_RMON_COUNTERS - 1) + i);
      }
      EXPECT_TRUE(rig.counters(0)->macCountersClear(port)->counters().empty());
   }
   Kiln::threadSafePtrModeIs(false);
}

TEST_F(MacPolling, FollowsPortsThatComeMoveAndGo) {
   const auto port = rig.addPort("Ethernet1", 0, 0);
   rig.fleet.completions().modeIs(held);
   const auto asked = [&] {
      rig.advance(2.0);
      std::vector<std::pair<int, U16>> devicesAndPorts;
      for (const auto& completion : rig.fleet.completions().held()) {
         devicesAndPorts.emplace_back(completion.device, completion.portOrPipe);
      }
      rig.fleet.completions().deliverAllHeld();
      return devicesAndPorts;
   };
   using Ports = std::vector<std::pair<int, U16>>;
   EXPECT_EQ(asked(), (Ports{{0, 0}}));
   rig.addPort("Ethernet2", 0, 1);
   EXPECT_EQ(asked(), (Ports{{0, 0}, {0, 1}}));
   rig.chip(1).portAdd(5);
   rig.status->portInfoIs(port, {1, 5});
   EXPECT_EQ(asked(), (Ports{{0, 1}, {1, 5}}));
   rig.status->portInfoDel(port);
   EXPECT_EQ(asked(), (Ports{{0, 1}}));
   EXPECT_FALSE(rig.counters(1)->readings().isAsked(ZelCounter::ReadingKey::Kind::mac))
        << "what is known of a port goes with it";
}

TEST(SdkStatusText, EveryCodeOutsideTheTableIsUnknown) {
   EXPECT_STREQ(ZelCounter::sdkStatusText(17), "Operation not supported");
   EXPECT_STREQ(ZelCounter::sdkStatusText(25), "Object not implemented");
   for (const int status : {26, -1, 1000000}) {
      EXPECT_STREQ(ZelCounter::sdkStatusText(status), "Unknown error") << status;
   }
}

TEST_F(MacPolling, APortThatWentAwayIsDroppedAndNoted) {
   const auto port = rig.addPort("Ethernet1", 0, 0);
   rig.fleet.completions().modeIs(held);
   rig.advance(2.0);
   rig.status->portInfoDel(port);
   rig.fleet.completions().deliverAllHeld();
   EXPECT_TRUE(rig.counters(0)->macCountersLast().empty());
   EXPECT_THAT(Kiln::RingLog::instance().lines(),
               testing::Contains(testing::HasSubstr(" intfId missing in systemStatus::portInfo[] for ")));
}

class RawCallback : public MacPolling {
 protected:
   void complete(int dev, int port, void* cookie) {
      bf_rmon_counter_array_t counters{};
      ZelCounter::ZelCountersCallback(dev, port, &counters, cookie);
   }
};

TEST_F(RawCallback, RefusesAPortAboveTheInvalidOne) {
   complete(0, 456, rig.counters(0).ptr());         // the invalid port: no interface, nothing stored
   complete(0, 0x10000 + 5, rig.counters(0).ptr()); // only the low 16 bits count
   EXPECT_THAT([&] { complete(0, 457, rig.counters(0).ptr()); },
               testing::ThrowsMessage<std::range_error>(
                    "PortIndex::value < PortIndex::min or > PortIndex::invalid not allowed"));
   EXPECT_TRUE(rig.counters(0)->macCountersLast().empty());
}

TEST_F(RawCallback, ACookieOfAnotherDeviceOrOfNobodyStoresNothing) {
   const auto port = rig.addPort("Ethernet1", 0, 0);
   complete(1, 0, rig.counters(0).ptr());
   int nobody = 0;
   complete(0, 0, &nobody);
   EXPECT_FALSE(rig.counters(0)->macCountersLast(port));
}

TEST_F(RawCallback, NeedsACookie) {
   EXPECT_DEATH(complete(0, 0, nullptr), "\"bc\" failed in ZelCounters, ZelCountersCallback");
}

class FakeCounter : public testing::Test {
 protected:
   FakeCounter() {
      rig.makeManager();
      rig.addChip(0, "Zel0");
      port = rig.addPort("Ethernet1", 0, 3);
      rig.chip(0).rmonIs(3, 1, 77);
   }

   Environment simulation{"SIMULATION_VMID", "1"};
   CountersRig rig;
   Pelt::IntfId port;
};

TEST_F(FakeCounter, ShowsTheOneCounterOnEveryPortAndAsksNoHardware) {
   const Environment id("ZEL_COUNTER_ID", "5");
   for (const auto& [text, value] : {std::pair{"0x10", 16U}, {"010", 8U}, {"12", 12U}}) {
      const Environment fake("ZEL_COUNTER_VALUE", text);
      rig.fleet.faults().failNext("bf_port_mac_stats_hw_async_get", 1); // a request would use it up
      rig.advance(2.0);
      for (unsigned i = 0; i < BF_NUM_RMON_COUNTERS; ++i) {
         EXPECT_EQ(rig.last(0, port, i), i == 5 ? value : 0U) << text << " index " << i;
      }
   }
   EXPECT_EQ(rig.fleet.faults().next(SoftChip::EntryPoint::portMacStatsGet), 1);
}

// Changes the fake counter with the first port that is read.
class ChangingCountersSm : public Vex::Counters::CountersSm {
 public:
   using CountersSm::CountersSm;
   void updateCounters(VexTypes::CounterType, const Pelt::IntfId&) override {
      setenv("ZEL_COUNTER_ID", "6", 1);
   }
};

TEST_F(FakeCounter, IsLookedUpForEachPolledPort) {
   const Environment value("ZEL_COUNTER_VALUE", "9");
   const Environment id("ZEL_COUNTER_ID", "5");
   Vex::Counters::CountersSm::Context context{};
   context.clock = Kiln::activityManagerClock();
   context.helper = rig.mgr->zelCountersHelper();
   rig.mgr->vexCountersSmIs(Kiln::allocate<ChangingCountersSm>(std::move(context)));
   rig.addChip(0, "Zel0");
   const auto second = rig.addPort("Ethernet2", 0, 4);
   rig.advance(2.0);
   EXPECT_EQ(rig.last(0, port, 5), 9U);
   EXPECT_EQ(rig.last(0, second, 5), 0U);
   EXPECT_EQ(rig.last(0, second, 6), 9U);

   const Environment bad("ZEL_COUNTER_ID", "89");
   rig.status->portInfoDel(port);
   rig.status->portInfoDel(second);
   rig.advance(2.0); // where no port is polled, nobody looks
}

TEST_F(FakeCounter, ASimulationStaysOne) {
   const Environment value("ZEL_COUNTER_VALUE", "9");
   const Environment id("ZEL_COUNTER_ID", "5");
   unsetenv("SIMULATION_VMID");
   rig.addChip(1, "Zel1");
   const auto second = rig.addPort("Ethernet2", 1, 4);
   rig.advance(2.0);
   EXPECT_EQ(rig.last(0, port, 5), 9U);
   EXPECT_EQ(rig.last(1, second, 5), 9U);
}

TEST_F(FakeCounter, NeedsBothVariables) {
   const Environment id("ZEL_COUNTER_ID", "5");
   rig.advance(2.0);
   EXPECT_EQ(rig.last(0, port, 1), 77U);
}

TEST_F(FakeCounter, CallbacksAfterCleanUpStoreNothing) {
   smRunning = 0;
   rig.advance(2.0);
   EXPECT_FALSE(rig.counters(0)->macCountersLast(port));
}

TEST_F(FakeCounter, RefusesAnInvalidCounter) {
   const Environment value("ZEL_COUNTER_VALUE", "1");
   for (const char* text : {"89", "-1", "4294967301"}) {
      const Environment id("ZEL_COUNTER_ID", text);
      EXPECT_DEATH(rig.advance(2.0), "\"ctrId < BF_NUM_RMON_COUNTERS\" failed in FakeCounter") << text;
   }
}

} // namespace

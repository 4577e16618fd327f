// The manager: construction, chips that come and go, and the polling clock.
#include "counters/helper/ZelCountersHelper.h"
#include "counters/l3/RetrySm.h"
#include "counters/l3/ZelCountersL3Intf.h"
#include "counters/tables/HwTableCountersSm.h"
#include "counters/tables/ZelCountersSm.h"
#include "kiln/Trace.h"
#include "tests/support/CountersRig.h"
#include "tests/support/TemporaryFolder.h"
#include "vex/VexL3Intf.h"
#include "vex/VexSubIntfCountersSm.h"

#include <cmath>
#include <functional>
#include <gmock/gmock.h>
#include <regex>
#include <vector>

namespace {

using namespace ZelTest;

TEST(ManagerConstruction, BuildsItsServicesInTheirOrder) {
   CountersRig rig;
   Kiln::String error;
   ASSERT_TRUE(Kiln::traceSettingIs("ZelCountersMgr/1", &error)) << error;
   testing::internal::CaptureStderr();
   rig.makeManager();
   const std::string trace = testing::internal::GetCapturedStderr();
   ASSERT_TRUE(Kiln::traceSettingIs("ZelCountersMgr/9", &error)) << error; // quiet again

   const std::regex step("ZelCountersMgr/1 (.*)");
   std::vector<std::string> steps;
   for (auto at = std::sregex_iterator(trace.begin(), trace.end(), step); at != std::sregex_iterator();
        ++at) {
      steps.push_back((*at)[1]);
   }
   EXPECT_EQ(steps,
             (std::vector<std::string>{
                  "cliCallbackIs ZelCounters ZelCountersCli", "agentCommandCallbackIs", "zelCountersHelperIs",
                  "vexCountersSmIs", "writerConfigIs", "vlanIntfSmIs", "vexL3IntfDataIs vexL3IntfData",
                  "vexL3IntfTableIs", "zelCountersL3IntfSmIs", "vexL3IntfSmIs", "timerWheel",
                  "zelSubIntfCountersHelperIs", "vexSubIntfCountersSmIs", "countersMgrSmIs"}));
   EXPECT_TRUE(rig.mgr->initialized());
   EXPECT_TRUE(rig.mgr->hasNotificationActive());
   EXPECT_TRUE(rig.commands->agentCommandCallback("ZelCountersCli"));
   EXPECT_TRUE(rig.mgr->vexL3IntfData()->vexL3IntfTable()->hasNotificationActive());
   const Kiln::Ptr<VexHelper::VexHelperSubIntfCountersSm> subIntfHelper = rig.mgr->zelSubIntfCountersHelper();
   EXPECT_EQ(subIntfHelper->frameworkType(), "ZelCounter::ZelCountersSubIntfCountersHelper");
}

TEST(ManagerConstruction, NeedsTheCommandDirectory) {
   CountersRig rig;
   rig.commands = nullptr;
   EXPECT_DEATH(rig.makeManager(), "\"cliRequestDirSm\\(\\)\" failed in ZelCountersMgr");
}

TEST(ManagerConstruction, NeedsTheDropTableOfAChipThatCountsQosDrops) {
   CountersRig rig;
   rig.makeManager();
   rig.status->chipCapabilitiesIs("soft", {.qosPolicyCounter = true});
   EXPECT_DEATH(rig.addChip(0, "Zel0"), "\"mounts\\(\\)->qosPolicyDropCountSiloTable\\(\\)\" failed");
}

TEST(ManagerConstruction, CommandsThatComeAfterItsEndAreRefused) {
   CountersRig rig;
   rig.makeManager();
   rig.deleteManager();
   const auto handler = rig.commands->agentCommandCallback("ZelCountersCli");
   EXPECT_FALSE(handler->command({"show", "mac"}, -1).ok());
}

// A completion is outstanding and somebody holds the chip: still nobody writes the tables, and no clock runs.
TEST(ManagerConstruction, ItsEndStopsEverythingWhateverIsOutstanding) {
   CountersRig rig;
   const std::size_t clocks = Kiln::activityManagerClock()->armedCount();
   rig.makeManager();
   rig.addChip(0, "Zel0");
   rig.addPort("Ethernet1", 0, 0);
   rig.fleet.completions().modeIs({SoftChip::CompletionMode::Kind::held});
   rig.advance(2.0);
   Kiln::Ptr<ZelCounter::ZelCounters> held = rig.counters(0);
   const U64 objects = Kiln::trackedObjectCount();
   rig.deleteManager();
   EXPECT_EQ(Kiln::activityManagerClock()->armedCount(), clocks);
   EXPECT_EQ(rig.mounts->refCount(), 1U);
   {
      const auto lock = Kiln::ActivityLockAnchor::lock();
      EXPECT_FALSE(held->vexCountersSm());
      held->requestHwCountersPolling();
      held = nullptr;
   }
   EXPECT_LT(Kiln::trackedObjectCount(), objects);
   rig.advance(10.0);
   rig.fleet.completions().deliverAllHeld();
}

TEST(ManagerConstruction, AnEqualCommandHandlerIsKept) {
   CountersRig rig;
   rig.makeManager();
   const auto* before = rig.mgr->cliCallback().ptr();
   rig.mgr->cliCallbackIs("ZelCounters", "ZelCountersCli", rig.mgr.ptr());
   EXPECT_EQ(rig.mgr->cliCallback().ptr(), before);
}

// A manager with all reactors, and a chip with all of its own.
class Reactors : public testing::Test {
 protected:
   Reactors() {
      ports->hasNotificationActiveIs(true);
      vlans->hasNotificationActiveIs(true);
      chipStatus->hasNotificationActiveIs(true);
      const Vex::SharedTables tables = Vex::openSharedTables(Silo::Store::directory(folder.path()));
      rig.mounts->ethPhyIntfStatusDirIs(ports);
      rig.mounts->vlanIntfStatusDirIs(vlans);
      rig.mounts->writerConfigIs(Kiln::allocate<Vex::Counters::WriterConfig>());
      rig.mounts->allIntfCountersIs(tables.allIntfCounters);
      rig.mounts->allIntfQueueCountersIs(tables.allIntfQueueCounters);
      rig.mounts->allVlanIntfCountersIs(tables.allVlanIntfCounters);
      rig.mounts->intfAllNatCounterDirIs(tables.intfAllNatCounterDir);
      rig.makeManager();
      rig.status->chipCapabilitiesIs("soft", {.vlanCounters = true});
      SoftChip::Chip& chip = rig.fleet.chipAdd({.name = "chip0", .deviceId = 0, .pipes = 1});
      chip.capacityIs("ingL2DomainCount", 0);
      rig.addPort("Ethernet1", 0, 0);
      {
         const auto lock = Kiln::ActivityLockAnchor::lock();
         rig.mgr->addChip(0, "Zel0", {"soft"}, ZelSdk::getZelSessionHdl(), Kiln::allocate<SoftChip::SoftPd>(),
                          chip.program(), chipStatus);
         ports->intfStatusIs(ethernet1, true);
         rig.mgr->vexL3IntfData()->vexL3IntfTable()->intfIdToL3IdIs(vlan10, 10); // which waits for room
      }
      rig.advance(2.0);
   }

   const Pelt::IntfId ethernet1{"Ethernet1"};
   const Pelt::IntfId vlan10{"Vlan10"};
   const TemporaryFolder folder;
   CountersRig rig;
   const std::size_t clocks = Kiln::activityManagerClock()->armedCount(); // before there is a manager
   const Kiln::Ptr<Interface::EthPhyIntfStatusDir> ports = Kiln::allocate<Interface::EthPhyIntfStatusDir>();
   const Kiln::Ptr<Interface::VlanIntfStatusDir> vlans = Kiln::allocate<Interface::VlanIntfStatusDir>();
   const Kiln::Ptr<ZelSlice::ChipStatus> chipStatus = Kiln::allocate<ZelSlice::ChipStatus>();
};

// Whoever holds them, and whatever happens to what they watched.
TEST_F(Reactors, DoNothingAfterTheManagersEnd) {
   const auto mgrSm = rig.mgr->countersMgrSm();
   const auto countersSm = rig.mgr->vexCountersSm();
   const auto subIntfCountersSm = rig.mgr->vexSubIntfCountersSm();
   const auto helper = rig.mgr->zelCountersHelper();
   const auto vlanIntfSm = rig.mgr->vlanIntfSm();
   const auto l3IntfSm = rig.mgr->zelCountersL3IntfSm();
   const auto l3Table = rig.mgr->vexL3IntfData()->vexL3IntfTable();
   const auto routedPortCounterSm = l3IntfSm->routedPortCounterSm();
   const auto l3Helper = l3IntfSm->helper(0);
   const auto retrySm = l3Helper->retrySm();
   auto counters = rig.counters(0);
   const auto zelCountersSm = counters->zelCountersSm();
   const auto hwTableCountersSm = counters->hwTableCountersSm();
   const auto queuePoller = counters->pipeIntfQueueCounterSm(0);
   const auto tmPollers = counters->tm().pipeTmCounterSm();
   retrySm->startTimer();
   rig.deleteManager();
   EXPECT_EQ(retrySm->timeMin(), Kiln::never);
   rig.advance(10.0); // the wheel of the subinterfaces' reactor stops with its next tick
   EXPECT_EQ(Kiln::activityManagerClock()->armedCount(), clocks);
   {
      const auto lock = Kiln::ActivityLockAnchor::lock();
      counters = nullptr;
      rig.status->portInfoIs(Pelt::IntfId("Ethernet2"), {0, 1});
      chipStatus->stateIs(5);
      chipStatus->stateIs(ZelSlice::chipStateUp);
      ports->intfStatusIs(Pelt::IntfId("Ethernet2"), true);
      vlans->intfStatusIs(vlan10, true);
      l3Table->intfIdToL3IdIs(Pelt::IntfId("Vlan11"), 11);
      countersSm->updateCounters(VexTypes::CounterType::port, ethernet1);
      EXPECT_TRUE(countersSm->clear("Ethernet1"));
      countersSm->clear("all");
      subIntfCountersSm->updateCounters();
      helper->initialize(ethernet1);
      helper->doClearIntfQueueCounters(ethernet1, true);
      EXPECT_FALSE(helper->getIntfQueueCounters(ethernet1, {}).has(0));
      const auto l3Record = Kiln::allocate<VexTypes::L3IntfCounters>();
      EXPECT_FALSE(helper->getVlanIntfCounters(vlan10, l3Record, l3Record));
      routedPortCounterSm->updateRoutedPortCounters();
      retrySm->startTimer();
      retrySm->retryPendingVlan();
      EXPECT_FALSE(zelCountersSm->counterInitialized(0));
      EXPECT_FALSE(zelCountersSm->parent());
      queuePoller->pollingClockExpired();
      for (const auto& [key, poller] : tmPollers) {
         poller->poll();
         poller->scheduleClock();
      }
   }
   EXPECT_EQ(Kiln::activityManagerClock()->armedCount(), clocks);
   EXPECT_FALSE(rig.common->vlanIntf(vlan10));
}

TEST_F(Reactors, TakeNoIntervalThatWouldStopOrSpinThem) {
   auto& chip = *rig.counters(0);
   auto& l3IntfSm = *rig.mgr->zelCountersL3IntfSm();
   const auto tmPoller = chip.tm().pipeTmCounterSm().begin()->second;
#define INTERVAL(object, x)                                                                                  \
   {                                                                                                         \
#x, [&](double seconds) { (object).x##Is(seconds); }, [&] { return (object).x(); }                     \
   }
   const struct {
      const char* name;
      std::function<void(double)> set;
      std::function<double()> get;
   } intervals[] = {
        INTERVAL(*rig.mgr, sdkPollingInterval),
        INTERVAL(*l3IntfSm.routedPortCounterSm(), routedPortTimerDelay),
        INTERVAL(*l3IntfSm.helper(0)->retrySm(), retryDelay),
        INTERVAL(*chip.zelCountersSm(), initDelay),
        INTERVAL(*chip.hwTableCountersSm(), hwTableCountersPollingInterval),
        INTERVAL(*tmPoller, pollingInterval),
        INTERVAL(chip, intfQueueCountersSdkPollingInterval),
   };
#undef INTERVAL
   for (const auto& interval : intervals) {
      interval.set(0.25);
      for (const double refused : {0.0, -1.0, std::nan(""), Kiln::never}) {
         EXPECT_THROW(interval.set(refused), std::range_error) << interval.name << ' ' << refused;
      }
      EXPECT_EQ(interval.get(), 0.25) << interval.name;
   }
}

class Polling : public testing::Test {
 protected:
   Polling() {
      rig.makeManager();
      rig.addChip(0, "Zel0");
      port = rig.addPort("Ethernet1", 0, 5);
   }

   U64 seen() { return rig.last(0, port, 0); }
   void hardware(U64 value) { rig.chip(0).rmonIs(5, 0, value); }

   CountersRig rig;
   Pelt::IntfId port;
};

// Makes a completion's read fail.
class FailingHelper : public ZelCounter::ZelCountersHelper {
 public:
   using ZelCountersHelper::ZelCountersHelper;
   void getCounters(const Pelt::IntfId&, const Kiln::Ptr<VexTypes::IntfCounters>&,
                    const Kiln::Ptr<VexTypes::IntfCounters>&) override {
      throw std::runtime_error("the read failed");
   }
};

TEST_F(Polling, GoesOnWithoutChipsAndAfterAPassThatThrows) {
   rig.deleteChip("Zel0");
   rig.advance(2.0);
   EXPECT_DOUBLE_EQ(rig.mgr->countersMgrSm()->intfCounterPollingTimeMin(), 4.0);

   auto ports = Kiln::allocate<Interface::EthPhyIntfStatusDir>();
   ports->intfStatusIs(port, true);
   Vex::Counters::CountersSm::Context context{};
   context.ethPhyIntfStatusDir = ports;
   context.clock = Kiln::activityManagerClock();
   context.helper = Kiln::allocate<FailingHelper>(rig.mgr.ptr(), rig.status);
   rig.mgr->vexCountersSmIs(Kiln::allocate<Vex::Counters::CountersSm>(std::move(context)));
   rig.mgr->vexCountersSm()->hasNotificationActiveIs(true);
   rig.addChip(0, "Zel0");
   rig.fleet.completions().modeIs({SoftChip::CompletionMode::Kind::inlined});
   hardware(1);
   rig.advance(2.0);
   EXPECT_EQ(seen(), 1U);
   EXPECT_DOUBLE_EQ(rig.mgr->countersMgrSm()->intfCounterPollingTimeMin(), 6.0);
}

TEST_F(Polling, AChipUnderAUsedDeviceIdTakesItsPlace) {
   const auto old = rig.counters(0);
   rig.addChip(0, "Zel0b");
   EXPECT_EQ(rig.mgr->zelCounters().size(), 1U);
   EXPECT_EQ(rig.counters(0)->chipName(), "Zel0b");
   rig.advance(2.0);
   EXPECT_FALSE(old->macCountersLast(port)); // the old chip is not polled any more
   EXPECT_TRUE(rig.counters(0)->macCountersLast(port));
}

TEST_F(Polling, DeleteTakesEveryChipOfTheNameAndNoOther) {
   rig.addChip(1, "Zel1");
   rig.addChip(2, "Zel0");
   rig.deleteChip("Zel9");
   EXPECT_EQ(rig.mgr->zelCounters().size(), 3U);
   rig.deleteChip("Zel0");
   EXPECT_EQ(rig.mgr->zelCounters().keys(), std::vector<ZelId::ZelDevId>{1});
}

TEST_F(Polling, AChipsOwnNameOutlivesIt) {
   rig.addChip(0, Kiln::String(40, 'x').c_str());
   const auto lock = Kiln::ActivityLockAnchor::lock();
   rig.mgr->addChip(0, rig.counters(0)->chipName(), {"soft"}, 1, nullptr, nullptr, nullptr);
   EXPECT_EQ(rig.counters(0)->chipName(), Kiln::String(40, 'x'));
   rig.mgr->addChip(1, rig.counters(0)->chipName(), {"soft"}, 1, nullptr, nullptr, nullptr);
   rig.mgr->deleteChip(rig.counters(0)->chipName());
   EXPECT_TRUE(rig.mgr->zelCounters().empty());
}

TEST(ManagerChips, RefusesInvalidChips) {
   CountersRig rig;
   rig.makeManager();
   const auto lock = Kiln::ActivityLockAnchor::lock();
   EXPECT_THROW(rig.mgr->addChip(8, "Zel8", {"soft"}, 1, nullptr, nullptr, nullptr), std::range_error);
   EXPECT_THAT(
        [&] { rig.mgr->zelCountersIs(nullptr); },
        testing::ThrowsMessage<std::invalid_argument>("null _zelCounters parameter to mutator for "
                                                      "ZelCounter::ZelCountersMgr::zelCounters not allowed"));
}

TEST(ManagerChips, ANewChipHasATrafficManagerEntryForEachPipe) {
   CountersRig rig;
   rig.makeManager();
   rig.addChip(3, "Zel3", 4);
   const auto* device = rig.tm->countersByDevId().find(3);
   ASSERT_NE(device, nullptr);
   EXPECT_EQ((*device)->countersByPipe().size(), 4U);
}

} // namespace

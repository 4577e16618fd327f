// A chip's life, its well-known tables and pollers, the polling of its ports, and the commands for everything of it.
#include "counters/ZelCounters.h"

#include "counters/chip/CounterTableNames.h"
#include "counters/chip/Guarded.h"
#include "counters/chip/SdkStatus.h"
#include "counters/chip/Slices.h"
#include "counters/chip/ZelCountersLog.h"
#include "counters/chip/ZelCountersTrace.h"
#include "counters/mac/FakeCounter.h"
#include "counters/publish/ChipPublishingSm.h"
#include "counters/tables/HwTableCountersSm.h"
#include "counters/tables/ZelCountersSm.h"
#include "kiln/ActivityLock.h"
#include "kiln/ActivityManager.h"
#include "kiln/Choices.h"
#include "sdk/bf_port.h"
#include "sdk/lld.h"
#include "sdk/pipe_mgr.h"
#include "zl/ZelSdk.h"

namespace ZelCounter {

namespace {

// The faked array has spare slots, as the SDK's has; only the first BF_NUM_RMON_COUNTERS are read.
constexpr std::size_t fakedSlots = 128;

CookieRegistry<ZelCounters>& registry() {
   return CookieRegistry<ZelCounters>::instance();
}

// Whether the entries of a match table are each pipe's own or the same in all. Asked of the SDK once, before anything
// is read: what reads the table's counters per pipe relies on it.
int entryScopeIs(const ChipAccess& chip, U32 tableIndex, U32 scope) {
   return pipe_mgr_tbl_set_property(chip.sessionId(), chip.deviceId(),
                                    chip.zlResourceInfoIntf()->zlTable(tableIndex)->handle,
                                    PIPE_TBL_PROPERTY_ENTRY_SCOPE, scope, 0);
}

// Of the internal interfaces only the chip's own, which its status names, is polled; without a chip status, none.
bool isPolled(const ChipAccess& chip, const Pelt::IntfId& intf, const ZelSystem::PortRecord& record) {
   if (record.devId != chip.deviceId()) {
      return false;
   }
   if (!Pelt::InternalIntfId::isInternalIntfId(intf)) {
      return true;
   }
   return intf == (chip.chipStatus() ? chip.chipStatus()->internalIntf() : Pelt::IntfId());
}

// Goes the way of a real completion, callback and registry included, so that a simulation tests that way too.
void fakePort(ZelCounters* chip, const FakeCounter& fake, U16 devicePort) {
   KILN_TRACE(7, "Faking counter # " << fake.id << " value " << fake.value);
   U64 buffer[fakedSlots] = {};
   buffer[fake.id] = fake.value;
   registry().requested(chip);
   chip->readings().requested({ReadingKey::Kind::mac, devicePort});
   ZelCountersCallback(chip->deviceId(), devicePort, reinterpret_cast<bf_rmon_counter_array_t*>(buffer),
                       chip);
}

// Announced before the request, since its completion may come inline; a refused request has none, so the announcement
// is withdrawn. There is no retry: the next pass asks again.
void requestPort(ZelCounters* chip, const Pelt::IntfId& intf, U16 devicePort) {
   registry().requested(chip);
   chip->readings().requested({ReadingKey::Kind::mac, devicePort});
   const bf_status_t status =
        bf_port_mac_stats_hw_async_get(chip->deviceId(), devicePort, ZelCountersCallback, chip);
   if (status != BF_SUCCESS) {
      registry().refused(chip);
      chip->readings().refused({ReadingKey::Kind::mac, devicePort}, status);
      KILN_TRACE(4, sdkErrorText(status)
                         << " requesting counters for intf " << intf << " (" << devicePort << ")");
   }
}

// Without shared data the views' counts end with the chip.
ZelCounters::Context withDropData(ZelCounters::Context context) {
   if (!context.cliPortDropData) {
      context.cliPortDropData = Kiln::allocate<CliPortDropData>();
   }
   return context;
}

} // namespace

ZelCounters::ZelCounters(Context context)
     : ChipAccess({context.devId, context.chipName, context.devProfile.chipTypeName, context.sessionId,
                   context.chipStatus, context.systemStatus, context.zlPdIntf, context.zlResourceInfoIntf}),
       context_(withDropData(std::move(context))), mac_(*this), portDrops_(*this, context_.cliPortDropData),
       mauDrops_(*this, context_.cliPortDropData), pipeline_(*this, context_.cliPortDropData),
       tm_(*this, context_.tmCountersData, context_.tmCountersDataLastClear, context_.cliPortDropData),
       tables_(*this,
               [this](ShowOutput& out, const auto& info, ZelId::ZelPipeId pipe,
                      TableCounters::ClearStage stage) {
                  return handleTableClear(out, info, pipe, stage == TableCounters::ClearStage::before);
               }),
       pdp_(*this), queues_(*this, context_.vexCountersSm) {
   // Before anything asks the SDK, whose completion may come inline.
   registry().add(this);
   try {
      handleInitialized();
   } catch (...) {
      stop();
      throw;
   }
}

void ZelCounters::handleInitialized() {
   const Kiln::Ptr<const Kiln::Clock> clock = Kiln::activityManagerClock();
   if (context_.chipPublisher) {
      chipPublishingSm_ = Kiln::allocate<ChipPublishingSm>(*this, tm_, context_.chipPublisher, clock);
   }
   if (zlResourceInfoIntf()) {
      initializePerPipeCounters();
      zelCountersSm_ = Kiln::allocate<ZelCountersSm>(this, clock);
      hwTableCountersSm_ = Kiln::allocate<HwTableCountersSm>(clock, this);
   }
   initializedIs(true);
}

// Whoever lets go of a chip should have stopped it. This is for the others: its pollers must not outlive its parts.
ZelCounters::~ZelCounters() {
   stop();
}

Kiln::Ptr<ZelCounters> zelCountersFactory(ZelCounters::Context context) {
   auto made = Kiln::allocate<ZelCounters>(std::move(context));
   made->hasNotificationActiveIs(true);
   return made;
}

// In a simulation's clean-up the SDK may be half gone.
void ZelCounters::readOnceMore() {
   if (isStopped() || !initialized() || isReadingOnceMore_ || isCleanedUp()) {
      return;
   }
   isReadingOnceMore_ = true; // a watcher of what is handed over may take the chip away itself
   guarded("reading drops once more", [this] { portDrops_.readAll(); });
   guarded("reading drops once more", [this] { mauDrops_.fetchAll(); });
   guarded("reading the pipeline once more", [this] { pipeline_.readAll(); });
   guarded("reading the traffic manager once more", [this] { tm_.readAll(); });
   // Of a chip without tables nothing else is published but its health.
   if (chipPublishingSm_ && hwTableCountersSm_) {
      chipPublishingSm_->readOnceMore();
   }
   guarded("reading queues once more", [this] { queues_.readOnceMore(); });
   isReadingOnceMore_ = false;
}

void ZelCounters::stop() {
   if (isStopped()) {
      return;
   }
   stoppedIs(true);
   // Completions first, then what makes requests: from here on neither a callback nor a clock finds this chip.
   registry().retire(this);
   if (hwTableCountersSm_) {
      hwTableCountersSm_->stop();
   }
   if (zelCountersSm_) {
      zelCountersSm_->stop();
      zelCountersSm_ = nullptr;
   }
   if (chipPublishingSm_) {
      chipPublishingSm_->stop();
      chipPublishingSm_ = nullptr;
   }
   queues_.stop();
   tm_.pipeTmCounterSmDelAll();
   // Whoever holds the chip longer must not keep these: their clocks run, and one process at a time writes a table.
   context_ = {};
}

void ZelCounters::handleSyncPass() {
   if (chipPublishingSm_) {
      chipPublishingSm_->handleSyncPass();
   }
}

// Views and what is published keep counts of the same tables.
U32 ZelCounters::handleTableClear(ShowOutput& out, const ZlResourceInfo::ZlTableCounter& info,
                                  ZelId::ZelPipeId pipe, bool isBefore) {
   if (isBefore) {
      portDrops_.readOnceMore(out, info, pipe);
   } else {
      portDrops_.tableWritten(info, pipe);
   }
   if (chipPublishingSm_ && isBefore) {
      chipPublishingSm_->readOnceMore(info, pipe);
   } else if (chipPublishingSm_) {
      chipPublishingSm_->tableWritten(info, pipe);
   }
   return PortDrops::entriesOf(info);
}

void ZelCounters::initializePerPipeCounters() {
   KILN_TRACE(4, "initializePerPipeCounters");
   const U32 pdpClassCountId = zlResourceInfoIntf()->zlTableCounterIndex(TableNames::pdpClassCount);
   KILN_ASSERT(pdpClassCountId != 0xFFFFFFF);
   perPipeCounterIs(pdpClassCountId, true);

   // Looked for only on chips with the capability: other programs don't have these tables.
   if (capabilities().qosPolicyCounter) {
      const U32 tableIndex = zlResourceInfoIntf()->zlTableIndex(TableNames::qosPolicyDropCounter);
      KILN_ASSERT(tableIndex != 0xFFFFFFF);
      const pipe_status_t pps = entryScopeIs(*this, tableIndex, PIPE_ENTRY_SCOPE_SINGLE_PIPELINE);
      KILN_ASSERT(pps == 0);
      const U32 qosPolicyDropCountId =
           zlResourceInfoIntf()->zlTableCounterIndex(TableNames::qosPolicyDropCount);
      KILN_ASSERT(qosPolicyDropCountId != 0xFFFFFFF);
      perPipeCounterIs(qosPolicyDropCountId, true);
   }

   // On hardware these four tables stay as the P4 program declares them.
   if (simulation()) {
      const U32 queueCountersIndex = zlResourceInfoIntf()->zlTableIndex(TableNames::queueCounters);
      KILN_ASSERT(queueCountersIndex != 0xFFFFFFF);
      pipe_status_t pps = entryScopeIs(*this, queueCountersIndex, PIPE_ENTRY_SCOPE_SINGLE_PIPELINE);
      KILN_ASSERT(pps == 0);
      const U32 pdpPolicyIndex = zlResourceInfoIntf()->zlTableIndex(TableNames::pdpPolicy);
      KILN_ASSERT(pdpPolicyIndex != 0xFFFFFFF);
      pps = entryScopeIs(*this, pdpPolicyIndex, PIPE_ENTRY_SCOPE_SINGLE_PIPELINE);
      KILN_ASSERT(pps == 0);
      const U32 l2DmacClassifyIndex = zlResourceInfoIntf()->zlTableIndex(TableNames::l2DmacClassify);
      KILN_ASSERT(l2DmacClassifyIndex != 0xFFFFFFF);
      // All pipelines, unlike the two before: its entries are the same in every pipe.
      pps = entryScopeIs(*this, l2DmacClassifyIndex, PIPE_ENTRY_SCOPE_ALL_PIPELINES);
      KILN_ASSERT(pps == 0);
      const U32 l2DmacClassifyCountId =
           zlResourceInfoIntf()->zlTableCounterIndex(TableNames::l2DmacClassifyCount);
      KILN_ASSERT(l2DmacClassifyCountId != 0xFFFFFFF);
      perPipeCounterIs(l2DmacClassifyCountId, false);
   }

   const Kiln::Ptr<const Kiln::Clock> clock = Kiln::activityManagerClock();
   for (const U16 pipe : pipes()) {
      pipeIntfQueueCounterSmIs(pipe, clock)->pollingClockExpired(); // the first poll waits no period
      U32 physicalPipeId = 0;
      const bf_status_t status = lld_sku_map_pipe_id_to_phy_pipe_id(deviceId(), pipe, &physicalPipeId);
      KILN_ASSERT_MESSAGE(status == 0, "status == 0", "Failed to map logical to physical pipe-id");
      KILN_ASSERT(physicalPipeId <= ZelId::ZelPipeId::max());
      // Only these pollers ask by physical pipe; everything else here goes by the logical one.
      for (const U32 counterType : polledTmCounterTypes) {
         pipeTmCounterSmIs({pipe, counterType}, physicalPipeId, clock)->scheduleClock();
      }
   }
}

void ZelCounters::requestHwCountersPolling() {
   Kiln::ActivityLockAnchor::assertHeld();
   KILN_TRACE(4, "requestHwCountersPolling");
   const auto self = heldSelf();
   const std::vector<Port> mine = ports();
   const U64 portsVersion = systemStatus()->portInfoVersion();
   // In slices: this chip may be stopped meanwhile, also by a watcher of what is published. Several requests or marks make
   // one, since a look at the clock takes as long as a mark.
   constexpr std::size_t atOnce = 16;
   std::size_t made = 0;
   const auto nextSlice = [&made] {
      if (++made % atOnce == 0) {
         Kiln::ActivityLockAnchor::giveWay("requestHwCountersPolling");
      }
   };
   for (const Port& port : mine) {
      nextSlice();
      // A completion may have changed the ports, or have stopped this chip.
      const bool isAsBefore = systemStatus()->portInfoVersion() == portsVersion;
      const ZelSystem::PortRecord record = isAsBefore ? ZelSystem::PortRecord{deviceId(), port.devicePort}
                                                      : systemStatus()->portInfo(port.intf);
      if (isStopped() || !isPolled(*this, port.intf, record)) {
         continue;
      }
      KILN_TRACE(7, "PortId: " << port.intf << " (" << record.devicePort << ")");
      if (const std::optional<FakeCounter> fake = fakeCounter()) {
         fakePort(this, *fake, record.devicePort);
      } else {
         requestPort(this, port.intf, record.devicePort);
      }
   }
   if (isStopped()) {
      return;
   }
   tellSilence();
   // These have no completions of their own: they are only marked due, once a pass, after the ports. An interface that goes
   // is not marked.
   const Kiln::Ptr<Vex::Counters::CountersSm> countersSm = vexCountersSm();
   const Kiln::Ptr<Vex::SubIntfCountersSm> subIntfCountersSm = context_.vexSubIntfCountersSm;
   if (countersSm && context_.vexCommonSmData) {
      for (const Pelt::IntfId& intf : context_.vexCommonSmData->vlanIntf().keys()) {
         countersSm->updateCounters(VexTypes::CounterType::vlanIntf, intf);
         nextSlice();
         if (isStopped()) {
            return;
         }
      }
   }
   if (subIntfCountersSm) {
      subIntfCountersSm->updateCounters();
   }
}

// Once for each silence, however many of its readings fail. A pass that comes very late says that the agent stood still:
// until it has read as usual, old readings are no fault of the chip's.
void ZelCounters::tellSilence() {
   const double now = Kiln::System::currentTime();
   const double patience = readings().patience(ReadingKey::Kind::mac);
   if (now - std::exchange(lastPass_, now) > patience) { // never so in the first pass
      judgedFrom_ = now + patience;
   }
   const std::vector<ReadingKey::Kind> silent = readings().silentKinds();
   if (now < judgedFrom_ || silent.empty() != isSilent_) {
      isSuspected_ = false;
      return;
   }
   if (!isSilent_ && !std::exchange(isSuspected_, true)) {
      return; // the other kinds become old by the next pass
   }
   isSuspected_ = false;
   isSilent_ = !silent.empty();
   if (!isSilent_) {
      Kiln::OperatorLog::instance().log(ZEL_COUNTERS_CHIP_ANSWERS, std::array{chipName()});
      return;
   }
   std::vector<Kiln::String> names;
   for (const ReadingKey::Kind kind : silent) {
      names.emplace_back(ReadingKey::textOf(kind));
   }
   Kiln::OperatorLog::instance().log(ZEL_COUNTERS_CHIP_SILENT,
                                     std::array{chipName(), Kiln::joined(names, ", ")});
}

void ZelCounters::getMacCounters(const Pelt::IntfId& intf, const Kiln::Ptr<VexTypes::IntfCounters>& record,
                                 const Kiln::Ptr<VexTypes::IntfCounters>& previous) {
   KILN_TRACE(4, "getMacCounters"
                      << ", intf: " << intf);
   if (const Kiln::Ptr<IntfCounters>* const last = macCountersLast().findInPass(intf)) {
      const IntfCounters& snapshot = **last;
      // Values of two places are never compared: no step leads to a place that somebody was counted at.
      if (previous->sourceIs(mac_.sourceOf(snapshot), mac_.isCounted(snapshot)) == Vex::Begin::nothing) {
         MacAccounting::beginAt(snapshot, *previous);
      }
      macAccounting_.account(snapshot, record, previous);
   }
}

// One after the other, as long as the chip is there: each may give way.
template <class... Pieces>
void ZelCounters::inSlices(Pieces... pieces) {
   Slices slices(*this);
   ((slices.next() ? pieces() : void()), ...);
}

// The order is fixed: operators' tools know it. PDP counters are not fetched here: the command layer does it, and
// leaves it out for a chip without tables, where the fetch asserts.
void ZelCounters::showCounters(ShowTarget out, bool nonZero) {
   KILN_TRACE(8, "ZelCounters::"
                      << "showCounters");
   inSlices([&] { tables_.showAll(out, nonZero); }, [&] { mac_.showAll(out, nonZero); },
            [&] { pipeline_.showAll(out, nonZero); }, [&] { pdp_.showAll(out, nonZero); },
            [&] { portDrops_.showAll(out, nonZero); },
            [&] {
               mauDrops_.fetchAll();
               mauDrops_.showAll(out, nonZero);
            });
}

// Fixed, too, and not the order of the shows. Drops are deliberately missing: they have clears of their own. Port drops
// are cleared all the same, as the clear of the tables zeroes theirs.
void ZelCounters::clearCounters(ShowTarget out) {
   KILN_TRACE(8, "ZelCounters::"
                      << "clearCounters");
   inSlices([&] { tables_.clearAll(out); }, [&] { clearAllButTables(out); });
}

void ZelCounters::clearAllButTables(ShowOutput& out) {
   inSlices([&] { mac_.clearAll(out); }, [&] { pipeline_.clearAll(out); }, [&] { pdp_.clearAll(); },
            [&] { tm_.clearAll(out); });
}

void ZelCountersCallback(bf_dev_id_t dev, bf_dev_port_t port, bf_rmon_counter_array_t* values, void* cookie) {
   const auto lock = Kiln::ActivityLockAnchor::lock();
   const auto whole = Kiln::ActivityLockAnchor::lock(); // nested: whatever a watcher does, nobody gets in
   // After the clean-up of a simulation the SDK's threads still deliver, to objects that may be half gone.
   if (ZelCounters::isCleanedUp()) {
      return;
   }
   auto* const bc = static_cast<ZelCounters*>(cookie);
   KILN_ASSERT(bc);
   // Declared after the lock, so that it is given up before the lock is.
   const Kiln::Ptr<ZelCounters> chip = registry().completed(bc);
   const ZelId::PortIndex index(static_cast<U16>(port)); // throws above 456, also for a late completion
   if (!chip || chip->deviceId() != dev) {
      ChipAccess::lateCompletionInc(dev);
      KILN_TRACE(4, "ZelCountersCallback, port: " << port << ", late completion of device " << dev
                                                  << " dropped");
      return;
   }
   const Pelt::IntfId intf = chip->systemStatus()->portToIntfId(chip->deviceId(), index);
   KILN_TRACE(4, "ZelCountersCallback"
                      << ", port: " << port << ", intf: " << intf);
   const ReadingKey key{ReadingKey::Kind::mac, index.value()};
   if (!chip->readings().reading(key).isOutstanding) {
      ChipAccess::lateCompletionInc(dev);
   }
   if (intf.empty()) {
      chip->readings().forget(key); // the snapshot of who had the port is no newer for it
   } else {
      chip->readings().completed(key);
   }
   guarded("storing a port's counters", [&] {
      // Empty when the port has no interface any more; then neither step does anything.
      chip->updateCounters(intf, *values);
      if (const Kiln::Ptr<Vex::Counters::CountersSm> countersSm = chip->vexCountersSm()) {
         countersSm->updateCounters(VexTypes::CounterType::port, intf);
      }
   });
}

} // namespace ZelCounter

// The counters of one chip.
#pragma once

#include "counters/chip/CookieRegistry.h"
#include "counters/chip/ShowTarget.h"
#include "counters/drops/MauDrops.h"
#include "counters/drops/PipelineCounters.h"
#include "counters/drops/PortDrops.h"
#include "counters/drops/TmCounters.h"
#include "counters/mac/MacAccounting.h"
#include "counters/mac/MacCounters.h"
#include "counters/queues/QueueCounters.h"
#include "counters/tables/PdpCounters.h"
#include "counters/tables/TableCounters.h"
#include "vex/ChipPublisher.h"
#include "vex/VexCommonSmData.h"
#include "vex/VexSubIntfCountersSm.h"
#include "zel/ZelDevProfile.h"

namespace ZelCounter {

class ChipPublishingSm;
class HwTableCountersSm;
class ZelCountersSm;

// One a chip, owned by the counters manager. Everything runs under the activity lock: on the activity thread, or in an
// SDK callback that took it.
//
// The work is done by the views behind it, one for each kind of counters; what is here forwards to them. A chip without
// a resource-info service counts ports only: it has no counter tables and no table pollers.
//
// Show and clear operations write text to a descriptor, which they don't own, or rows to a ShowOutput. They block only
// as the descriptor does, and end early when the output takes no more. Of a chip whose construction is not complete
// they write "Agent not initialized yet"; the table and PDP operations leave that to the command layer.
//
// All but those of one interface work in slices: unless the lock is held more than once, others get in between, and may
// take the chip away, which ends the operation.
class ZelCounters : public ChipAccess, public CookieStorage<ZelCounters> {
 public:
   using IntfId = Pelt::IntfId;
   using PipeId = ZelId::ZelPipeId;
   using ClockPtr = Kiln::Ptr<const Kiln::Clock>;
   using RecordPtr = Kiln::Ptr<VexTypes::IntfCounters>;

   // What the chip's counters work with. Pointers are shared; all but systemStatus may be null, and what needs a null
   // one is left out. The QoS-policy and ACL tables are only carried: nothing here reads or writes them.
   struct Context {
      ZelId::ZelDevId devId;
      Kiln::String chipName;
      U32 sessionId; // the SDK session, the same for every chip
      Kiln::Ptr<const ZelSlice::ChipStatus> chipStatus;
      Kiln::Ptr<const ZelSystem::SystemStatus> systemStatus;
      Kiln::Ptr<ZelQos::TmCountersData> tmCountersData;
      Kiln::Ptr<ZelQos::TmCountersData> tmCountersDataLastClear;
      Kiln::Ptr<Silo::ZelSystem::P4CounterTable> qosPolicyDropCountSiloTable;
      Kiln::Ptr<Silo::ZelSystem::AclCounterTable> aclCounterTable;
      Kiln::Ptr<const ZelAclCounter::AclCounterClearRequest> aclCounterClearRequest;
      Kiln::Ptr<ZelAclCounter::AclCounterClearResponse> aclCounterClearResponse;
      Kiln::Ptr<Vex::Counters::CountersSm> vexCountersSm;
      Kiln::Ptr<Vex::SubIntfCountersSm> vexSubIntfCountersSm;
      Kiln::Ptr<ZlPd::ZlPdIntf> zlPdIntf;
      Kiln::Ptr<ZlResourceInfo::ZlResourceInfoIntf> zlResourceInfoIntf;
      ZelDriver::ZelDevProfile devProfile;
      Kiln::Ptr<CliPortDropData> cliPortDropData;
      Kiln::Ptr<Vex::VexCommonSmData> vexCommonSmData;
      Kiln::Ptr<Vex::ChipPublisher> chipPublisher;
   };

   explicit ZelCounters(Context context);
   ~ZelCounters() override;
   const Kiln::Ptr<Vex::Counters::CountersSm>& vexCountersSm() const { return context_.vexCountersSm; }

   // The chip is about to go: what it counted since the last reads is read from the SDK's copy. A read that fails changes
   // nothing.
   void readOnceMore();
   // The chip goes away: it takes no more completions, asks for nothing more, and lets go of the reactors and tables that
   // it fed. Idempotent; the last pointer to a chip must be given up under the activity lock.
   void stop();

   void handleSyncPass() override;

   // Starts an asynchronous read of every port of this chip, then marks VLAN interfaces and subinterfaces due. A
   // refused request is traced and its port is asked again on the next tick.
   void requestHwCountersPolling();
   // An interface got a port, got another one, or lost its port.
   void handlePort(const IntfId& intf) {
      mac_.handlePort(intf);
      queues_.handlePort(intf);
   }
   // Stores a port's 89 raw counters as the interface's latest; dropped when the interface has no port record.
   void updateCounters(const IntfId& i, const bf_rmon_counter_array_t& raw) { mac_.updateCounters(i, raw); }
   // Fills the record from the interface's latest raw counters, if any, and vets it against the previous one.
   void getMacCounters(const IntfId& intf, const RecordPtr& record, const RecordPtr& previous);
   // Counts wraps and upsets in the step from the previous record to the new one. A counter whose step was an upset
   // gets its new value in the previous record as well, so that no step is left.
   void checkMacCountersOverflow(const IntfId& intf, const RecordPtr& record, const RecordPtr& previous) {
      macAccounting_.checkMacCountersOverflow(intf, record, previous);
   }
   // Wraps and single-event upsets (flipped bits) since the chip came up.
   U32 overflowCount() const { return macAccounting_.overflowCount(); }
   U32 seuCount() const { return macAccounting_.seuCount(); }
   const MacAccounting& macAccounting() const { return macAccounting_; }
   // The ports' raw counters: the latest completed read, and the values at the last clear.
   KILN_FORWARDED_MAP(mac_, IntfId, Kiln::Ptr<IntfCounters>, macCountersLast)
   KILN_FORWARDED_MAP(mac_, IntfId, Kiln::Ptr<IntfCounters>, macCountersClear)
   // A clear moves the interface's clear snapshot only: neither the hardware nor what is published.
   void showMacCounters(ShowTarget out, const IntfId& intf, bool nonZero) { mac_.show(out, intf, nonZero); }
   void showAllMacCounters(ShowTarget out, bool nonZero) { mac_.showAll(out, nonZero); }
   void clearMacCounters(ShowTarget out, const IntfId& intf) { mac_.clear(out, intf); }
   void clearAllMacCounters(ShowTarget out) { mac_.clearAll(out); }

   // The counter tables: their list, and the SDK's software copy of what they count, at most one sync pass old. The id
   // is one of the catalogue's (assertion).
   const TableCounters& tables() const { return tables_; }
   void showCountersInfo(ShowTarget out) { tables_.showInfo(out); }
   void showTableCounters(ShowTarget out, U32 id, bool nonZero) { tables_.show(out, id, nonZero); }
   void showTableCountersPipe(ShowTarget out, U32 id, PipeId pipe, bool nonZero) {
      tables_.showPipe(out, id, pipe, nonZero);
   }
   void showAllTableCounters(ShowTarget out, bool nonZero) { tables_.showAll(out, nonZero); }
   // Write zero to the entries of a table of one pipe, or of all. Tables whose counts belong to another service are
   // left alone. A refusal by the SDK, but for "not supported", is an assertion.
   void clearTableCounters(ShowTarget out, U32 id, PipeId pipe) { tables_.clear(out, id, pipe); }
   void clearAllTableCounters(ShowTarget out) { tables_.clearAll(out); }

   // Reads the PDP class counters into pdpCountersLast. A read that fails is traced and ends the fetch, and the show
   // operations say that nothing was fetched until a later one succeeds.
   void fetchPdpCounters() { pdp_.fetch(); }
   bool pdpCountersFetched() const { return pdp_.pdpCountersFetched(); }
   // As fetched last, and as at the last clear, by interface.
   KILN_FORWARDED_MAP(pdp_, IntfId, Kiln::Ptr<ZelQos::PdpIntfCounter>, pdpCountersLast)
   KILN_FORWARDED_MAP(pdp_, IntfId, Kiln::Ptr<ZelQos::PdpIntfCounter>, pdpCountersClear)
   void printPdpCountersHeader(ShowTarget out) { PdpCounters::printHeader(out); }
   // Prints one class, after the header when that is still owed. True when the header has been printed.
   bool printPdpClassCountLine(ShowTarget out, const Kiln::String& intfName, const Kiln::String& className,
                               U64 count, bool headerDisplayed, bool nonZero) {
      return PdpCounters::printLine(out, intfName, className, count, headerDisplayed, nonZero);
   }
   // Prints every class of one interface, which must have been fetched once (assertion). True as above.
   bool showPdpIntfCounters(ShowTarget out, const IntfId& intf, bool hasHeader, bool nonZero, bool footer) {
      return pdp_.show(out, intf, hasHeader, nonZero, footer);
   }
   void showAllPdpIntfCounters(ShowTarget out, bool nonZero) { pdp_.showAll(out, nonZero); }
   // Moves the clear snapshot of every interface to what was fetched last; the hardware keeps its counts.
   void clearAllPdpIntfCounters(ShowTarget) { pdp_.clearAll(); }

   // Everything: the shows in one fixed order, the clears in another. PDP class counters are as fetched last.
   void showCounters(ShowTarget out, bool nonZero);
   void clearCounters(ShowTarget out);
   void clearAllButTables(ShowOutput& out);

   // Counts of the views below are those since the last clear; a clear moves the view's own snapshot and never the
   // hardware. What can't be read is a note below the rows, and its counts are shown as last read.

   // Packets through each stage of the pipes, read as they are asked for.
   PipelineCounters& pipeline() { return pipeline_; }
   void showAllPipelineCounters(ShowTarget out, bool nonZero) { pipeline_.showAll(out, nonZero); }
   void clearAllPipelineCounters(ShowTarget out) { pipeline_.clearAll(out); }
   // Drops by port and reason, from the SDK's software copy, which is at most one sync pass old.
   PortDrops& portDrops() { return portDrops_; }
   void showAllDropCounters(ShowTarget out, bool nonZero) { portDrops_.showAll(out, nonZero); }
   // Drops by match-action stage and deparser. They are shown, and cleared, as fetched last.
   MauDrops& mauDrops() { return mauDrops_; }
   void fetchAllMauDropCounters() { mauDrops_.fetchAll(); }
   void showAllMauDropCounters(ShowTarget out, bool nonZero) { mauDrops_.showAll(out, nonZero); }
   // The traffic manager's counters, as polled last, and their pollers, of which Is makes a missing one.
   TmCounters& tm() { return tm_; }
   const auto& pipeTmCounterSmIs(const PipeTmCounterKey& key, U32 physicalPipe, ClockPtr clock) {
      return tm_.pipeTmCounterSmIs(key, physicalPipe, std::move(clock));
   }
   void clearAllTmCounters(ShowTarget out) { tm_.clearAll(out); }

   // Queue counters by interface; null for an interface that was never read.
   QueueCounters& queues() { return queues_; }
   const auto& intfQueueCounters(const IntfId& intf) const { return queues_.intfQueueCounters(intf); }
   IntfQueueCounters& intfQueueCountersIs(const IntfId& intf) { return queues_.intfQueueCountersIs(intf); }
   void intfQueueCountersDel(const IntfId& intf) { queues_.intfQueueCountersDel(intf); }
   // Seconds between two polls of a pipe's queues. Throws std::range_error unless it is positive and finite.
   double intfQueueCountersSdkPollingInterval() const { return queues_.pollingInterval(); }
   void intfQueueCountersSdkPollingIntervalIs(double seconds) { queues_.pollingIntervalIs(seconds); }
   // The pollers by logical pipe. Is makes a missing one; throws std::invalid_argument for another clock than it has.
   const auto& pipeIntfQueueCounterSm() const { return queues_.pipeIntfQueueCounterSm(); }
   const auto& pipeIntfQueueCounterSm(PipeId pipe) const { return queues_.pipeIntfQueueCounterSm(pipe); }
   const auto& pipeIntfQueueCounterSmIs(PipeId p, ClockPtr c) {
      return queues_.pipeIntfQueueCounterSmIs(p, std::move(c));
   }
   void pipeIntfQueueCounterSmDel(PipeId pipe) { queues_.pipeIntfQueueCounterSmDel(pipe); }
   void pipeIntfQueueCounterSmDelAll() { queues_.pipeIntfQueueCounterSmDelAll(); }

   // What waits for the tables to be initialized, and what syncs them; null without a resource-info service.
   const Kiln::Ptr<ZelCountersSm>& zelCountersSm() const { return zelCountersSm_; }
   const Kiln::Ptr<HwTableCountersSm>& hwTableCountersSm() const { return hwTableCountersSm_; }
   // What publishes what the chip counts; null without a publisher.
   const Kiln::Ptr<ChipPublishingSm>& chipPublishingSm() const { return chipPublishingSm_; }

 private:
   void handleInitialized();
   void initializePerPipeCounters();
   void tellSilence();
   U32 handleTableClear(ShowOutput& out, const ZlResourceInfo::ZlTableCounter& info, PipeId pipe,
                        bool isBefore);
   template <class... Pieces>
   void inSlices(Pieces... pieces);

   Context context_;
   MacCounters mac_;
   MacAccounting macAccounting_;
   PortDrops portDrops_;
   MauDrops mauDrops_;
   PipelineCounters pipeline_;
   TmCounters tm_;
   TableCounters tables_;
   PdpCounters pdp_;
   QueueCounters queues_;
   Kiln::Ptr<ZelCountersSm> zelCountersSm_;
   Kiln::Ptr<HwTableCountersSm> hwTableCountersSm_;
   Kiln::Ptr<ChipPublishingSm> chipPublishingSm_;
   bool isReadingOnceMore_ = false;
   bool isSilent_ = false;    // as the operator log has it
   bool isSuspected_ = false; // it was silent in the last pass
   double lastPass_ = Kiln::never;
   double judgedFrom_ = 0; // before that, old readings may be the agent's own fault
};

Kiln::Ptr<ZelCounters> zelCountersFactory(ZelCounters::Context context);

// The SDK's completion of a MAC statistics read; the cookie is the ZelCounters that asked. Takes the activity lock. A
// Throws std::range_error for a port above 456; asserts that the cookie is not null.
void ZelCountersCallback(bf_dev_id_t dev, bf_dev_port_t port, bf_rmon_counter_array_t* values, void* cookie);

} // namespace ZelCounter

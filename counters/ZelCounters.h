// The counters of one chip.
#pragma once

#include "counters/ZelCountersTypes.h"
#include "counters/drops/CliPortDropData.h"
#include "counters/drops/PipeTmCounterSm.h"
#include "counters/queues/IntfQueueCounters.h"
#include "counters/show/ShowOutput.h"
#include "kiln/Accessors.h"
#include "sdk/bf_port.h"
#include "sdk/bf_tm.h"
#include "vex/SharedTables.h"
#include "vex/VexCommonSmData.h"
#include "vex/VexCountersSm.h"
#include "vex/VexSubIntfCountersSm.h"
#include "zel/ChipStatus.h"
#include "zel/SystemStatus.h"
#include "zel/TmCountersData.h"
#include "zel/ZelDevProfile.h"
#include "zl/ZlPd.h"
#include "zl/ZlResourceInfo.h"

#include <functional>
#include <optional>

namespace ZelCounter {

class HwTableCountersSm;
class PipeIntfQueueCounterSm;
class ZelCountersSm;

// One a chip, owned by the counters manager. Everything runs under the activity lock: on the activity thread,
// or in an SDK callback that took it.
//
// Show and clear operations write text to the descriptor that they are given and do not own; they never block
// on more than it does, and an output that takes no more ends them early. Of a chip whose construction is not
// complete they write "Agent not initialized yet"; the table and PDP operations leave that to the command
// layer. The overloads with a ShowOutput are the same operations; what becomes of the rows is its business.
//
// A chip without a resource-info service counts ports only: it has no counter tables and no table pollers.
class ZelCounters : public Kiln::Entity {
 public:
   // What the chip's counters work with. Pointers are shared; all but systemStatus may be null: what hangs on
   // a null one is left out.
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
   };

   explicit ZelCounters(Context context);
   ~ZelCounters() override;

   ZelId::ZelDevId deviceId() const { return context_.devId; }
   const Kiln::String& chipName() const { return context_.chipName; }
   U32 sessionId() const { return context_.sessionId; }
   const Kiln::Ptr<const ZelSlice::ChipStatus>& chipStatus() const { return context_.chipStatus; }
   const Kiln::Ptr<const ZelSystem::SystemStatus>& systemStatus() const { return context_.systemStatus; }
   const Kiln::Ptr<Vex::Counters::CountersSm>& vexCountersSm() const { return context_.vexCountersSm; }
   const Kiln::Ptr<ZlResourceInfo::ZlResourceInfoIntf>& zlResourceInfoIntf() const {
      return context_.zlResourceInfoIntf;
   }

   // The chip's logical pipes are 0 to this one, inclusive. Wider than a pipe id, so that a loop can pass it.
   U32 highestPipe() const { return chipStatus() ? chipStatus()->highestLogicalPipeId() : 0; }

   // The pipes to ask for a table: every logical one, or once all of them. Inclusive, wide as above.
   struct PipeRange {
      U32 first;
      U32 last;
   };
   PipeRange tablePipes(U32 tableId) const;

   // True in a process that was started with SIMULATION_VMID in its environment; set as the first chip comes
   // up.
   static bool simulation();
   // Whether what is written to a command goes to standard output, too.
   static bool echo();

   // The chip goes away: it takes no more completions and asks for nothing more. Idempotent; the last pointer to a
   // chip that was not stopped must be given up under the activity lock.
   void stop();

   // Starts an asynchronous read of every port of this chip, then marks VLAN interfaces and subinterfaces
   // due. A refused request is traced and its port is asked again on the next tick.
   void requestHwCountersPolling();
   // Stores a port's 89 raw counters as the interface's latest; dropped when the interface has no port
   // record.
   void updateCounters(const Pelt::IntfId& intf, const bf_rmon_counter_array_t& counters);

   // Fills the record from the interface's latest raw counters and vets it against the previous one; does
   // nothing when there are none.
   void getMacCounters(const Pelt::IntfId& intf, const Kiln::Ptr<VexTypes::IntfCounters>& record,
                       const Kiln::Ptr<VexTypes::IntfCounters>& previous);
   // Counts wraps and upsets in the step from the previous record to the new one. A counter whose step was an
   // upset gets its new value in the previous record, too, so that it has no step.
   void checkMacCountersOverflow(const Pelt::IntfId& intf, const Kiln::Ptr<VexTypes::IntfCounters>& record,
                                 const Kiln::Ptr<VexTypes::IntfCounters>& previous);

   void showMacCounters(U32 fd, const Pelt::IntfId& intf, bool nonZeroOnly);
   void showMacCounters(ShowOutput& out, const Pelt::IntfId& intf, bool nonZeroOnly);
   void showAllMacCounters(U32 fd, bool nonZeroOnly);
   void showAllMacCounters(ShowOutput& out, bool nonZeroOnly);
   // Clearing moves the interface's clear snapshot only: neither the hardware nor what is published.
   void clearMacCounters(U32 fd, const Pelt::IntfId& intf);
   void clearAllMacCounters(U32 fd);

   // Lists the counter tables.
   void showCountersInfo(U32 fd);
   void showCountersInfo(ShowOutput& out);
   // Print the SDK's software copy of a table, which is at most one sync pass old. A table that is not
   // initialized, or a chip whose first pass is not complete, answers with a line that says so. The id is one
   // of the catalogue's (assertion). A pipe is given for a per-pipe table (assertion) and refused, with a
   // line, for any other.
   void showTableCounters(U32 fd, U32 tableId, bool nonZeroOnly);
   void showTableCounters(ShowOutput& out, U32 tableId, bool nonZeroOnly);
   void showTableCountersPipe(U32 fd, U32 tableId, ZelId::ZelPipeId pipeId, bool nonZeroOnly);
   void showTableCountersPipe(ShowOutput& out, U32 tableId, ZelId::ZelPipeId pipeId, bool nonZeroOnly);
   void showAllTableCounters(U32 fd, bool nonZeroOnly);
   void showAllTableCounters(ShowOutput& out, bool nonZeroOnly);
   // Write zero to the entries of a table of one pipe, or of all. Tables whose counts belong to another
   // service are left alone. A refusal by the SDK, but for "not supported", is an assertion.
   void clearTableCounters(U32 fd, U32 tableId, ZelId::ZelPipeId pipeId);
   void clearAllTableCounters(U32 fd);
   // What to type for a table that they leave alone; null for any other.
   const char* otherClear(const ZlResourceInfo::ZlTableCounter& info) const;

   // Reads the PDP class counters into pdpCountersLast. A read that fails is traced and ends the fetch, and
   // the show operations say that nothing was fetched until a later one succeeds.
   void fetchPdpCounters();
   void printPdpCountersHeader(U32 fd);
   // Prints one class, the header before it when it is still owed. True when the header has been printed.
   bool printPdpClassCountLine(U32 fd, const Kiln::String& intfName, const Kiln::String& className, U64 count,
                               bool headerDisplayed, bool nonZeroOnly);
   // Prints every class of one interface, which must have been fetched once (assertion). True when the header
   // has been printed.
   bool showPdpIntfCounters(U32 fd, const Pelt::IntfId& intf, bool headerDisplayed, bool nonZeroOnly,
                            bool footer);
   bool showPdpIntfCounters(ShowOutput& out, const Pelt::IntfId& intf, bool headerDisplayed, bool nonZeroOnly,
                            bool footer);
   void showAllPdpIntfCounters(U32 fd, bool nonZeroOnly);
   void showAllPdpIntfCounters(ShowOutput& out, bool nonZeroOnly);
   // Moves the clear snapshot of every interface to what was fetched last; the hardware keeps its counts.
   void clearAllPdpIntfCounters(U32 fd);

   // Everything: the views below in one fixed order, and the clears in another. PDP class counters are as
   // fetched last.
   void showCounters(U32 fd, bool nonZeroOnly);
   void showCounters(ShowOutput& out, bool nonZeroOnly);
   void clearCounters(U32 fd);

   // Counts of the views below are those since the last clear; a clear moves the view's own snapshot and never
   // the hardware. What can't be read is a note below the rows, and its counts are shown as last read. Without
   // a pipe, every pipe; one that is given exists.

   // Packets through each stage of the pipes, by number as pipelineStages() has them (assertion), read as they
   // are asked for.
   static std::span<const char* const> pipelineStages();
   void showAllPipelineCounters(U32 fd, bool nonZeroOnly, std::optional<U16> pipe = {});
   void showAllPipelineCounters(ShowOutput& out, bool nonZeroOnly, std::optional<U16> pipe = {});
   void showPipelineCounters(U32 fd, U32 stage, bool nonZeroOnly, std::optional<U16> pipe = {});
   void showPipelineCounters(ShowOutput& out, U32 stage, bool nonZeroOnly, std::optional<U16> pipe = {});
   void clearAllPipelineCounters(U32 fd);

   // Drops by port and reason, from the SDK's software copy, which is at most one sync pass old.
   void showAllDropCounters(U32 fd, bool nonZeroOnly);
   void showAllDropCounters(ShowOutput& out, bool nonZeroOnly);
   void showDropCounters(U32 fd, const Pelt::IntfId& intf, bool nonZeroOnly);
   void showDropCounters(ShowOutput& out, const Pelt::IntfId& intf, bool nonZeroOnly);
   void clearAllDropCounters(U32 fd);

   // Drops by match-action stage and deparser. They are shown, and cleared, as fetched last. An interface stands
   // for its pipe, whose ports share them.
   void fetchAllMauDropCounters();
   void showAllMauDropCounters(U32 fd, bool nonZeroOnly, std::optional<U16> pipe = {});
   void showAllMauDropCounters(ShowOutput& out, bool nonZeroOnly, std::optional<U16> pipe = {});
   void showMauDropCounters(U32 fd, const Pelt::IntfId& intf, bool nonZeroOnly);
   void showMauDropCounters(ShowOutput& out, const Pelt::IntfId& intf, bool nonZeroOnly);
   void clearAllMauDropCounters(U32 fd);

   // The traffic manager's counters, as polled last.
   void showAllTmCounters(U32 fd, bool nonZeroOnly, std::optional<U16> pipe = {});
   void showAllTmCounters(ShowOutput& out, bool nonZeroOnly, std::optional<U16> pipe = {});
   void clearAllTmCounters(U32 fd);
   // A poller has read one, or failed to.
   void tmCounterIs(const PipeTmCounterKey& key, bf_status_t status, const bf_tm_pipe_counter_t& read);

   // As fetched last, and as at the last clear, by interface.
   KILN_HASH_MAP(Pelt::IntfId, Kiln::Ptr<ZelQos::PdpIntfCounter>, pdpCountersLast)
   KILN_HASH_MAP(Pelt::IntfId, Kiln::Ptr<ZelQos::PdpIntfCounter>, pdpCountersClear)
   // Whether the last fetch read every pipe.
   KILN_ATTRIBUTE(bool, pdpCountersFetched, false)

   // By counter table id: true for a table that is synced and read once a pipe; true once the SDK has
   // initialized the table.
   KILN_HASH_MAP(U32, bool, perPipeCounter)
   KILN_HASH_MAP(U32, bool, initializedCounter)
   // Set when the first sync pass has landed.
   KILN_ATTRIBUTE(bool, firstPollingComplete, false)

   // The chip's reactors; the first two are null without a resource-info service.
   const Kiln::Ptr<ZelCountersSm>& zelCountersSm() const { return zelCountersSm_; }
   const Kiln::Ptr<HwTableCountersSm>& hwTableCountersSm() const { return hwTableCountersSm_; }
   // By logical pipe.
   const Kiln::HashMap<U16, Kiln::Ptr<PipeIntfQueueCounterSm>>& pipeIntfQueueCounterSm() const {
      return pipeIntfQueueCounterSm_;
   }
   const Kiln::Ptr<PipeIntfQueueCounterSm>& pipeIntfQueueCounterSm(ZelId::ZelPipeId pipe) const;
   // The pipe's poller, made when missing. Another clock than it has is a std::invalid_argument.
   const Kiln::Ptr<PipeIntfQueueCounterSm>& pipeIntfQueueCounterSmIs(ZelId::ZelPipeId pipe,
                                                                     Kiln::Ptr<const Kiln::Clock> clock);
   void pipeIntfQueueCounterSmDel(ZelId::ZelPipeId pipe);
   void pipeIntfQueueCounterSmDelAll();
   const Kiln::HashMap<PipeTmCounterKey, Kiln::Ptr<PipeTmCounterSm>>& pipeTmCounterSm() const {
      return pipeTmCounterSm_;
   }
   const Kiln::Ptr<PipeTmCounterSm>& pipeTmCounterSmIs(const PipeTmCounterKey& key, U32 physicalPipe,
                                                       Kiln::Ptr<const Kiln::Clock> clock);

   // Queue counters by interface; none of an interface that was never read.
   const Kiln::HashMap<Pelt::IntfId, Kiln::Ptr<IntfQueueCounters>>& intfQueueCounters() const {
      return intfQueueCounters_;
   }
   const Kiln::Ptr<IntfQueueCounters>& intfQueueCounters(const Pelt::IntfId& intf) const {
      return Kiln::valueOrDefault(intfQueueCounters_, intf);
   }
   // The interface's counters, made when missing.
   IntfQueueCounters& intfQueueCountersIs(const Pelt::IntfId& intf);
   void intfQueueCountersDel(const Pelt::IntfId& intf) { intfQueueCounters_.erase(intf); }
   // Gives them to the forwarding layer.
   void handOverQueueCounters(const IntfQueueCounters& counters) const;
   // They read 0 from here on, and so does what is handed over; `portChanged` when the interface's port has
   // just appeared or changed. Nothing is asked of the SDK.
   void clearIntfQueueCounters(const Pelt::IntfId& intf, bool portChanged);
   // Seconds between two polls of a pipe's queues. Taken up when a pipe's clock is armed next, and told to the
   // readers of the shared table with the next polling pass. Not positive or not finite is a std::range_error.
   double intfQueueCountersSdkPollingInterval() const { return intfQueueCountersSdkPollingInterval_; }
   void intfQueueCountersSdkPollingIntervalIs(double seconds);

   // The latest completed read, and the values at the last clear, by interface.
   KILN_HASH_MAP(Pelt::IntfId, Kiln::Ptr<IntfCounters>, macCountersLast)
   KILN_HASH_MAP(Pelt::IntfId, Kiln::Ptr<IntfCounters>, macCountersClear)

   // Events since the chip came up: wraps, and single-event upsets (flipped bits).
   KILN_COUNTER(U32, overflowCount)
   KILN_COUNTER(U32, seuCount)

   // Set when the construction is complete.
   KILN_ATTRIBUTE(bool, initialized, false)

 private:
   // The fake counter of a simulation, from ZEL_COUNTER_ID and ZEL_COUNTER_VALUE.
   struct FakeCounter {
      U64 id;
      U64 value;
   };

   // A port whose drops are shown.
   struct DropPort {
      Pelt::IntfId intf;
      U16 devicePort;
   };

   static bool fakeCounter(FakeCounter* fake);
   bool isPolled(const Pelt::IntfId& intf, const ZelSystem::PortRecord& record) const;
   void refreshOwnPorts();
   void requestPort(const Pelt::IntfId& intf, U16 devicePort);
   void fakePort(const FakeCounter& fake, U16 devicePort);
   bool answeredUninitialized(ShowOutput& out) const;

   void initializePerPipeCounters();
   int entryScopeIs(U32 tableIndex, U32 scope) const;

   U32 countersNum() const;
   Kiln::String tableTitle(const ZlResourceInfo::ZlTableCounter& info, ZelId::ZelPipeId pipeId) const;
   void showUninitialized(ShowOutput& out, U32 tableId, ZelId::ZelPipeId pipeId) const;
   void showDirectTable(ShowOutput& out, const ZlResourceInfo::ZlTableCounter* info, ZelId::ZelPipeId pipeId,
                        bool nonZeroOnly);
   void showIndirectTable(ShowOutput& out, const ZlResourceInfo::ZlTableCounter& info,
                          ZelId::ZelPipeId pipeId, bool nonZeroOnly);
   bool directRows(ShowOutput& out, const ZlResourceInfo::ZlTableCounter& info, ZelId::ZelPipeId pipeId,
                   bool nonZeroOnly) const;
   void indirectRows(ShowOutput& out, const ZlResourceInfo::ZlTableCounter& info, ZelId::ZelPipeId pipeId,
                     bool nonZeroOnly) const;
   Kiln::String entryDetails(U32 tableHandle, S32 entry) const;
   bool fetchPdpPipe(const ZlResourceInfo::ZlTableCounter& info, U32 pipe);
   ZelQos::PdpIntfCounter* pdpCounterOf(U32 localPortKey);
   bool pdpRows(ShowOutput& out, const Pelt::IntfId& intf, bool nonZeroOnly);

   // Without an interface all of the chip's; without a stage or a pipe every one.
   TableView pipelineView(std::optional<U32> stage, std::optional<U16> pipe, bool nonZeroOnly);
   TableView dropView(const Pelt::IntfId& intf, bool nonZeroOnly);
   TableView mauDropView(const Pelt::IntfId& intf, std::optional<U16> pipe, bool nonZeroOnly);
   TableView tmView(std::optional<U16> pipe, bool nonZeroOnly);
   void showView(ShowOutput& out, const std::function<TableView()>& view) const;
   void clearWith(U32 fd, const std::function<void()>& clear) const;
   Kiln::String readPipelineStage(U32 pipe, U32 stage);
   void resetTmCounters();
   std::vector<DropPort> dropPorts(const Pelt::IntfId& intf) const;
   Kiln::String dropTableError(ZlDrop::Point point, const ZlResourceInfo::ZlTableCounter** info) const;
   Kiln::String readPortDrops(ZlDrop::Point point, const ZlResourceInfo::ZlTableCounter& info,
                              std::span<const DropPort> ports);
   std::vector<Kiln::String> readDrops(std::span<const DropPort> ports);
   void dropTableWritten(const ZlResourceInfo::ZlTableCounter& info, ZelId::ZelPipeId pipe);

   Context context_;
   // This chip's part of the port table, in its order, as of the version.
   std::vector<std::pair<Pelt::IntfId, ZelSystem::PortRecord>> ownPorts_;
   U64 ownPortsVersion_ = 0;
   Kiln::HashMap<Pelt::IntfId, U16> pdpPortKey_; // where pdpCountersLast was read, as a local port key
   ClearableCounts pipelineCounts_;
   ClearableCounts mauDropCounts_;
   bool mauDropsFetched_ = false;
   std::vector<std::pair<U32, Kiln::String>> mauDropErrors_; // of the last fetch, by pipe
   Kiln::Ptr<ZelCountersSm> zelCountersSm_;
   Kiln::Ptr<HwTableCountersSm> hwTableCountersSm_;
   Kiln::HashMap<U16, Kiln::Ptr<PipeIntfQueueCounterSm>> pipeIntfQueueCounterSm_;
   Kiln::HashMap<PipeTmCounterKey, Kiln::Ptr<PipeTmCounterSm>> pipeTmCounterSm_;
   Kiln::HashMap<Pelt::IntfId, Kiln::Ptr<IntfQueueCounters>> intfQueueCounters_;
   double intfQueueCountersSdkPollingInterval_ = 2.0;
   bool stopped_ = false;
};

Kiln::Ptr<ZelCounters> zelCountersFactory(ZelCounters::Context context);

// The forwarding layer's record of them: every queue that was read.
VexTypes::IntfQueueCounters queueRecord(const IntfQueueCounters& counters);

// The SDK's completion of a MAC statistics read; the cookie is the ZelCounters that asked. Takes the activity
// lock. A port above 456 is a std::range_error, a null cookie an assertion.
void ZelCountersCallback(bf_dev_id_t dev, bf_dev_port_t port, bf_rmon_counter_array_t* counters,
                         void* cookie);

} // namespace ZelCounter

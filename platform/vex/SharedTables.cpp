// Opens and removes the shared tables.
#include "vex/SharedTables.h"

#include "kiln/Time.h"
#include "vex/Continuity.h"
#include "vex/FormerRecords.h"
#include "vex/VexCountersLog.h"
#include "zel/ZelId.h"

#include <algorithm>

namespace Silo {

template <RecordType Record>
IntfTable<Record>::IntfTable(const Store& store, const std::string& name, TableOptions options)
     : table_(store, name, Record{}, std::move(options), Interface::upgraded) {}

template class IntfTable<Interface::IntfCounters>;
template class IntfTable<Interface::L3IntfCounters>;
template class IntfTable<Interface::IntfQueueCounters>;
template class IntfTable<Interface::NatCounter>;

} // namespace Silo

namespace Silo::Interface {

AllVlanIntfCounters::AllVlanIntfCounters(const Store& store, const std::string& name,
                                         const std::string& clearName, const TableOptions& options)
     : IntfTable(store, name, options), clearTable_(store, clearName, {}, options, upgraded) {}

void AllIntfQueueCounters::queueIs(const Pelt::IntfId& intf, std::size_t queue, double now) {
   if (queue >= IntfQueueCounters::queueCount) {
      throw std::out_of_range("queue " + std::to_string(queue) + " of " + intf.text() + ": expected 0 to " +
                              std::to_string(IntfQueueCounters::queueCount - 1));
   }
   const Key key(intf.text());
   auto sample = table().sampleOrDefault(key);
   if (!sample.record.has(queue)) {
      if (sample.info.generation == 0) {
         Vex::beginRecord(sample.record, now);
      }
      sample.record.present |= U32{1} << queue;
      // A new entry is no reading: the queues that were read keep their time.
      const bool isSampled = sample.info.sampleTime != unknownSampleTime;
      table().recordIs(key, sample.record, isSampled ? sample.info.sampleTime : now);
   }
}

} // namespace Silo::Interface

namespace Vex {

namespace {

Silo::TableOptions options(std::size_t capacity, double pollingInterval, bool isProvisional) {
   const auto source = Kiln::System::timeSource();
   return {.capacity = capacity,
           .pollingInterval = pollingInterval,
           .clockDomain =
                source->isSimulated() ? Silo::ClockDomain::simulatedTime() : Silo::ClockDomain::monotonic(),
           .onCorruption = logCorruption,
           .isBegunAnew = false,
           .isProvisional = isProvisional};
}

void sayStarted(const SharedTables& tables) {
   double lastSign = Silo::unknownSampleTime;
   const auto& ports = tables.allIntfCounters->table();
   for (const Silo::Key& key : ports.keys()) {
      lastSign = std::max(lastSign, ports.sampleOrDefault(key).info.sampleTime);
   }
   tables.events->started(lastSign);
   if (tables.history) {
      tables.history->tellBeginning();
   }
}

} // namespace

SharedTables openSharedTables(const Silo::Store& store, const SharedTableSettings& settings) {
   namespace Tables = Silo::Interface;
   namespace TableName = Silo::Interface::TableName;
   const auto ports = options(settings.ports, settings.pollingInterval, settings.areProvisional);
   const auto vlanIntfs = options(settings.vlanIntfs, settings.pollingInterval, settings.areProvisional);
   const auto subIntfs = options(settings.subIntfs, settings.pollingInterval, settings.areProvisional);
   // Routed ports, VLAN interfaces and subinterfaces may all translate addresses.
   const auto l3Intfs = options(settings.ports + settings.vlanIntfs + settings.subIntfs,
                                settings.natPollingInterval, settings.areProvisional);
   const auto chips = options(ZelId::maxDevices, settings.pollingInterval, settings.areProvisional);
   const auto pipes = options(std::size_t{ZelId::maxDevices} * ZlPort::maxPipes, settings.pollingInterval,
                              settings.areProvisional);
   // First, since what becomes of the others is an event.
   const auto events =
        Kiln::allocate<EventRecorder>(store, settings.pollingInterval, settings.areProvisional);
   SharedTables tables{
        Kiln::allocate<Tables::AllIntfCounters>(store, TableName::intfCounters, ports),
        Kiln::allocate<Tables::AllIntfClearCounters>(store, TableName::intfClearCounters, ports),
        Kiln::allocate<Tables::AllIntfQueueCounters>(store, TableName::intfQueueCounters, ports),
        Kiln::allocate<Tables::AllIntfClearQueueCounters>(store, TableName::intfClearQueueCounters, ports),
        Kiln::allocate<Tables::AllVlanIntfCounters>(store, TableName::vlanIntfCounters,
                                                    TableName::vlanIntfClearCounters, vlanIntfs),
        Kiln::allocate<Tables::SubIntfCountersDir>(store, TableName::subIntfCounters, subIntfs),
        Kiln::allocate<Tables::SubIntfCountersSnapshotDir>(store, TableName::subIntfClearCounters, subIntfs),
        Kiln::allocate<Tables::AllNatCounterDir>(store, TableName::intfNatCounters, l3Intfs),
        nullptr,
        events,
        Kiln::allocate<ChipTables>(store, ChipTables::Options{ports, pipes, chips, settings.agentVersion}),
   };
   if (settings.historyMinutes > 0) {
      tables.history =
           Kiln::allocate<History>(store, HistorySettings{settings.historyMinutes, settings.historyInterval,
                                                          settings.ports, settings.areProvisional});
   }
   if (!settings.areProvisional) {
      sayStarted(tables);
   }
   return tables;
}

void keepSharedTables(const SharedTables& tables) {
   tables.allIntfCounters->table().keep();
   tables.allIntfClearCounters->table().keep();
   tables.allIntfQueueCounters->table().keep();
   tables.allIntfClearQueueCounters->table().keep();
   tables.allVlanIntfCounters->table().keep();
   tables.allVlanIntfCounters->clearTable().keep();
   tables.subIntfCountersDir->table().keep();
   tables.subIntfCountersSnapshotDir->table().keep();
   tables.intfAllNatCounterDir->table().keep();
   tables.chipTables->keep();
   if (tables.history) {
      tables.history->keep();
   }
   sayStarted(tables);
}

} // namespace Vex

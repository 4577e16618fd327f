// The shared tables that the agent mounts for the counters library. This process is their one writer.
#pragma once

#include "kiln/Ptr.h"
#include "silo/Table.h"
#include "vex/ChipTables.h"
#include "vex/EventRecorder.h"
#include "vex/History.h"
#include "vex/PublishedRecords.h"
#include "zel/Pelt.h"

#include <functional>

namespace Silo {

// A table of records by interface, as the framework shares it. Activity thread. Errors are Table's.
template <RecordType Record>
class IntfTable : public Kiln::PtrInterface {
 public:
   // Takes over a table of the last release, too.
   IntfTable(const Store& store, const std::string& name, TableOptions options);

   Table<Record>& table() { return table_; }
   const Table<Record>& table() const { return table_; }
   // With each polling pass: see Table.
   void mend() { table_.mend(); }

 private:
   Table<Record> table_;
};

namespace Interface {

// Interface counters as published now, and as they stood at the last clear.
class AllIntfCounters : public IntfTable<IntfCounters> {
   using IntfTable::IntfTable;
};
class AllIntfClearCounters : public IntfTable<IntfCounters> {
   using IntfTable::IntfTable;
};

class AllIntfClearQueueCounters : public IntfTable<IntfQueueCounters> {
   using IntfTable::IntfTable;
};
class AllIntfQueueCounters : public IntfTable<IntfQueueCounters> {
 public:
   using IntfTable::IntfTable;

   bool has(const Pelt::IntfId& intf, std::size_t queue) const {
      return table().sampleOrDefault(Key(intf.text())).record.has(queue);
   }
   // Creates the queue's entry, all zero, if it is missing. `now` is the sample time of a new record. Throws
   // std::out_of_range for a queue above 16.
   void queueIs(const Pelt::IntfId& intf, std::size_t queue, double now);
};

// The mounts have no clear table for VLAN interfaces, so this one brings its own.
class AllVlanIntfCounters : public IntfTable<L3IntfCounters> {
 public:
   AllVlanIntfCounters(const Store& store, const std::string& name, const std::string& clearName,
                       const TableOptions& options);

   Table<L3IntfCounters>& clearTable() { return clearTable_; }
   // Asks between the two whether to go on.
   void mend(const std::function<bool()>& goesOn) {
      IntfTable::mend();
      if (goesOn()) {
         clearTable_.mend();
      }
   }

 private:
   Table<L3IntfCounters> clearTable_;
};

class SubIntfCountersDir : public IntfTable<L3IntfCounters> {
   using IntfTable::IntfTable;
};
class SubIntfCountersSnapshotDir : public IntfTable<L3IntfCounters> {
   using IntfTable::IntfTable;
};

class AllNatCounterDir : public IntfTable<NatCounter> {
 public:
   using IntfTable::IntfTable;

   // The interface's record, or the default one. A corrupt one gives the default too, and is reported to the corruption
   // handler.
   NatCounter counter(const Pelt::IntfId& intf) const {
      return table().sampleOrDefault(Key(intf.text())).record;
   }
   // Writes the record under its own interface id, sampled at `now`.
   void counterIs(const NatCounter& counter, double now) {
      table().recordIs(Key(counter.intfId.data()), counter, now);
   }
   void counterDel(const Pelt::IntfId& intf) { table().recordDel(Key(intf.text())); }
};

} // namespace Interface

namespace ZelSystem {

// The tables for QoS-policy drops and for ACL counts. Only carried, from the mounts to each chip: nothing here reads or
// writes them. A chip that counts QoS-policy drops insists on the first.
class P4CounterTable : public Kiln::PtrInterface {};
class AclCounterTable : public Kiln::PtrInterface {};

} // namespace ZelSystem

} // namespace Silo

namespace ZelAclCounter {

// The requests to clear ACL counts, and the answers. Only carried, like the ACL table itself.
class AclCounterClearRequest : public Kiln::PtrInterface {};
class AclCounterClearResponse : public Kiln::PtrInterface {};

} // namespace ZelAclCounter

namespace Vex {

// How many records each kind of table holds, and how often its records are sampled.
struct SharedTableSettings {
   std::size_t ports = 2304; // 8 chips of 4 pipes of 72
   std::size_t vlanIntfs = 4094;
   std::size_t subIntfs = 4096;
   double pollingInterval = 2.0;    // seconds
   double natPollingInterval = 1.0; // seconds
   double historyMinutes = 15;      // how long samples of ports are kept; 0: no history
   double historyInterval = 2.0;    // seconds between two polling passes, and so between these
   bool areProvisional = false; // tables that are created go with their last pointer, unless they are kept
   Kiln::String agentVersion{}; // for readers
};

struct SharedTables {
   Kiln::Ptr<Silo::Interface::AllIntfCounters> allIntfCounters;
   Kiln::Ptr<Silo::Interface::AllIntfClearCounters> allIntfClearCounters;
   Kiln::Ptr<Silo::Interface::AllIntfQueueCounters> allIntfQueueCounters;
   Kiln::Ptr<Silo::Interface::AllIntfClearQueueCounters> allIntfClearQueueCounters;
   Kiln::Ptr<Silo::Interface::AllVlanIntfCounters> allVlanIntfCounters;
   Kiln::Ptr<Silo::Interface::SubIntfCountersDir> subIntfCountersDir;
   Kiln::Ptr<Silo::Interface::SubIntfCountersSnapshotDir> subIntfCountersSnapshotDir;
   Kiln::Ptr<Silo::Interface::AllNatCounterDir> intfAllNatCounterDir;
   Kiln::Ptr<History> history; // null if none is kept
   Kiln::Ptr<EventRecorder> events;
   Kiln::Ptr<ChipTables> chipTables;
};

// Where an agent of this user's has its tables, unless it is told another place.
inline Silo::Store defaultTableStore() {
   return Silo::Store::sharedMemoryOfUser(Silo::Interface::defaultTablePrefix);
}

// Opens every table for writing, taking over what the last writer left. Corruption goes to the operator log.
// Sample times are those of the process's time source, so set that first. Throws Silo::TableError.
SharedTables openSharedTables(const Silo::Store& store, const SharedTableSettings& settings = {});
// The start went well: that is an event, and provisional tables stay from now on.
void keepSharedTables(const SharedTables& tables);

} // namespace Vex

// The shared tables as another process sees them.
#pragma once

#include "silo/TableReader.h"
#include "tests/campaign/Campaign.h"
#include "vex/PublishedRecords.h"

namespace Campaign {

struct Run::Readers {
   template <class Record>
   using Reader = Silo::TableReader<Record>;

   explicit Readers(const Silo::Store& store)
        : ports(store, Silo::Interface::TableName::intfCounters),
          clearedPorts(store, Silo::Interface::TableName::intfClearCounters),
          queues(store, Silo::Interface::TableName::intfQueueCounters),
          clearedQueues(store, Silo::Interface::TableName::intfClearQueueCounters),
          vlanIntfs(store, Silo::Interface::TableName::vlanIntfCounters),
          subIntfs(store, Silo::Interface::TableName::subIntfCounters),
          nat(store, Silo::Interface::TableName::intfNatCounters) {}

   Reader<Silo::Interface::IntfCounters> ports;
   Reader<Silo::Interface::IntfCounters> clearedPorts;
   Reader<Silo::Interface::IntfQueueCounters> queues;
   Reader<Silo::Interface::IntfQueueCounters> clearedQueues;
   Reader<Silo::Interface::L3IntfCounters> vlanIntfs;
   Reader<Silo::Interface::L3IntfCounters> subIntfs;
   Reader<Silo::Interface::NatCounter> nat;
};

} // namespace Campaign

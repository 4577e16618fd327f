// The shared tables as another process sees them.
#pragma once

#include "silo/HistoryReader.h"
#include "silo/TableReader.h"
#include "tests/campaign/Campaign.h"
#include "vex/PublishedChip.h"
#include "vex/PublishedHistory.h"
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
          nat(store, Silo::Interface::TableName::intfNatCounters),
          places(store, Silo::Interface::TableName::intfPlaces),
          drops(store, Silo::Interface::TableName::intfDropCounters),
          classes(store, Silo::Interface::TableName::intfPdpCounters),
          stages(store, Silo::Interface::TableName::pipeStageCounters),
          pipeDrops(store, Silo::Interface::TableName::pipeDropCounters),
          trafficManager(store, Silo::Interface::TableName::pipeTmCounters),
          health(store, Silo::Interface::TableName::chipHealth),
          events(store, Silo::Interface::TableName::events),
          history(store, Silo::Interface::TableName::intfHistory, Silo::Interface::IntfHistory::layout) {}

   Reader<Silo::Interface::IntfCounters> ports;
   Reader<Silo::Interface::IntfCounters> clearedPorts;
   Reader<Silo::Interface::IntfQueueCounters> queues;
   Reader<Silo::Interface::IntfQueueCounters> clearedQueues;
   Reader<Silo::Interface::L3IntfCounters> vlanIntfs;
   Reader<Silo::Interface::L3IntfCounters> subIntfs;
   Reader<Silo::Interface::NatCounter> nat;
   Reader<Silo::Interface::IntfPlace> places;
   Reader<Silo::Interface::IntfDropCounters> drops;
   Reader<Silo::Interface::IntfPdpCounters> classes;
   Reader<Silo::Interface::PipeStageCounters> stages;
   Reader<Silo::Interface::PipeDropCounters> pipeDrops;
   Reader<Silo::Interface::PipeTmCounters> trafficManager;
   Reader<Silo::Interface::ChipHealth> health;
   Reader<Silo::Interface::Event> events;
   Silo::HistoryReader history;
};

} // namespace Campaign

// A manager that publishes a soft chip's counters into tables of its own, and readers of these tables.
#pragma once

#include "silo/TableReader.h"
#include "tests/support/CountersRig.h"
#include "tests/support/LoggedMessages.h"
#include "tests/support/TemporaryFolder.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace ZelTest {

class PublishingRig : public testing::Test {
 protected:
   PublishingRig() {
      rig.fleet.chipAdd({"chip0", 0, 2}); // the chip outlives the agent
   }
   ~PublishingRig() override { stop(); }

   // Starts the agent, with the ports that exist.
   void start(const Vex::SharedTableSettings& settings = {}) {
      tables = Vex::openSharedTables(store, settings);
      rig.mounts = Kiln::allocate<ZelCounter::CountersMounts>();
      rig.mounts->ethPhyIntfStatusDirIs(ports);
      rig.mounts->allIntfCountersIs(tables.allIntfCounters);
      rig.mounts->allIntfClearCountersIs(tables.allIntfClearCounters);
      rig.mounts->allIntfQueueCountersIs(tables.allIntfQueueCounters);
      rig.mounts->allIntfClearQueueCountersIs(tables.allIntfClearQueueCounters);
      rig.mounts->writerConfigIs(writer);
      rig.makeManager();
      rig.addChip(0, "Zel0");
   }
   void stop() {
      rig.deleteManager();
      rig.mounts = Kiln::allocate<ZelCounter::CountersMounts>();
      tables = {};
   }

   Pelt::IntfId addPort(const char* name, U16 devicePort) {
      const auto lock = Kiln::ActivityLockAnchor::lock();
      const Pelt::IntfId intf = rig.addPort(name, 0, devicePort);
      ports->intfStatusIs(intf, true);
      return intf;
   }

   // Polls once, with the counter at that value.
   void poll(bf_rmon_counter_t counter, U64 value) {
      rig.chip(0).rmonIs(port, counter, value);
      rig.advance(2.0);
   }

   const Kiln::Ptr<Vex::Counters::CountersSm>& sm() { return rig.mgr->vexCountersSm(); }

   // The record as another process reads it.
   template <class Record>
   Silo::ReadResult read(const char* table, const char* intf, Silo::Sample<Record>& sample) {
      Silo::TableReader<Record> reader(store, table);
      return reader.read(intf, sample);
   }
   template <class Record = Silo::Interface::IntfCounters>
   Record record(const char* table, const char* intf = "Ethernet1") {
      Silo::Sample<Record> sample;
      EXPECT_EQ(read(table, intf, sample), Silo::ReadResult::ok) << table << " " << intf;
      return sample.record;
   }
   Silo::Interface::IntfCounters published() { return record(Silo::Interface::TableName::intfCounters); }

   static constexpr U16 port = 5; // of Ethernet1

   const TemporaryFolder folder;
   const Silo::Store store = Silo::Store::directory(folder.path());
   LoggedMessages logged;
   CountersRig rig;
   Vex::SharedTables tables;
   Kiln::Ptr<Interface::EthPhyIntfStatusDir> ports = [] {
      auto made = Kiln::allocate<Interface::EthPhyIntfStatusDir>();
      made->hasNotificationActiveIs(true);
      return made;
   }();
   Kiln::Ptr<Vex::Counters::WriterConfig> writer = Kiln::allocate<Vex::Counters::WriterConfig>();
};

constexpr std::size_t inOctets = offsetof(Interface::EthIntfStatistics, inOctets) / sizeof(U64);
constexpr std::size_t inErrors = offsetof(Interface::EthIntfStatistics, inErrors) / sizeof(U64);

} // namespace ZelTest

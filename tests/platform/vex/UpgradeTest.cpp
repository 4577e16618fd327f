// Tables as the last release left them (images/README.md says how they came about), opened by today's agent.
#include "silo/TableReader.h"
#include "tests/support/Files.h"
#include "tests/support/LoggedMessages.h"
#include "tests/support/TemporaryFolder.h"
#include "vex/FormerRecords.h"
#include "vex/SharedTables.h"

#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using namespace Silo::Interface;
using Silo::Corruption;
using testing::ElementsAre;
using EthField = ::Interface::EthIntfStatistics;

class Upgrade : public testing::Test {
 protected:
   Upgrade() {
      for (const char* table : TableName::all) {
         std::filesystem::copy(std::string(ZEL_TABLE_IMAGES) + "/" + table, fileOf(table));
         std::filesystem::permissions(fileOf(table),
                                      std::filesystem::perms(0644)); // whatever they were checked out with
      }
   }

   std::string fileOf(const char* table) const { return folder_.path() + "/" + table; }

   // Opens the tables that were left, on the clock that they were left with.
   template <class IntfTable, class... Names>
   Kiln::Ptr<IntfTable> open(Names... names) {
      return Kiln::allocate<IntfTable>(
           store_, names...,
           Silo::TableOptions{.capacity = 4,
                              .pollingInterval = 2,
                              .clockDomain = {true, {1, 2}},
                              .onCorruption = [this](const Corruption& c) { corruptions_.push_back(c); },
                              .isBegunAnew = false});
   }

   // The record, if it has this generation and sample time, and no creation time.
   template <class Record>
   Record record(const Silo::Table<Record>& table, const char* key, std::uint64_t generation, double time,
                 double createdTime = 0) {
      const Silo::Sample<Record> sample = table.sample(key);
      EXPECT_EQ(sample.info.generation, generation) << table.name() << " " << key;
      EXPECT_EQ(sample.info.sampleTime, time) << table.name() << " " << key;
      EXPECT_EQ(sample.record.createdTime, createdTime);
      EXPECT_EQ(sample.record.createdUnixTime, 0);
      return sample.record;
   }

   const ZelTest::TemporaryFolder folder_;
   const Silo::Store store_ = Silo::Store::directory(folder_.path());
   std::vector<Corruption> corruptions_;
};

template <class Record>
U64 total(const Record& record, const char* name) {
   const auto fields = ::Interface::fieldsOf<typename Record::Statistics>();
   for (std::size_t i = 0; i < fields.size(); ++i) {
      if (std::string_view(fields[i].name) == name) {
         return record.totals[i];
      }
   }
   throw std::out_of_range(name);
}

TEST_F(Upgrade, PortsKeepTheirTotalsClearsAndDiscontinuityTimes) {
   const auto ports = open<AllIntfCounters>(TableName::intfCounters);
   const auto clears = open<AllIntfClearCounters>(TableName::intfClearCounters);
   const IntfCounters port = record(ports->table(), "Ethernet1", 8, 16.0);
   EXPECT_EQ(port.reading.inOctets, 1'500'000u);
   EXPECT_EQ(port.reading.inUnicastPkts, 1000u);
   EXPECT_EQ(total(port, "in-octets"), 1'500'000u);
   EXPECT_EQ(total(port, "in-unicast-pkts"), 0u);
   EXPECT_EQ(port.interval, 2.0);
   EXPECT_EQ(port.discontinuityTime, 14.0);
   EXPECT_EQ(port.speed, 0u);
   EXPECT_EQ(total(record(ports->table(), "Ethernet2", 8, 16.0), "in-octets"), 64'640u);
   const IntfCounters clear = record(clears->table(), "Ethernet1", 1, 13.0);
   EXPECT_EQ(total(clear, "in-octets"), 1'000'000u);
   EXPECT_EQ(clear.discontinuityTime, 12.0);
   EXPECT_EQ(total(record(clears->table(), "Ethernet2", 1, 13.0), "in-octets"), 64'000u);
}

TEST_F(Upgrade, QueuesKeepTheirTotalsAndClears) {
   const auto queues = open<AllIntfQueueCounters>(TableName::intfQueueCounters);
   const auto clears = open<AllIntfClearQueueCounters>(TableName::intfClearQueueCounters);
   const IntfQueueCounters port = record(queues->table(), "Ethernet1", 10, 17.0);
   EXPECT_EQ(port.totals[3], (QueueStatistics{1'001'001, 64'064'064, 205}));
   EXPECT_EQ(port.interval, 2.0);
   EXPECT_TRUE(port.has(7));
   EXPECT_FALSE(port.has(8));
   EXPECT_EQ(port.reported, port.present);
   EXPECT_EQ(port.absorbed, 0u);
   EXPECT_EQ(port.discontinuityTime, 0.0);
   EXPECT_EQ(record(clears->table(), "Ethernet1", 1, 13.0).totals[3],
             (QueueStatistics{1'001'000, 64'064'000, 200}));
   EXPECT_EQ(queues->table().size(), 2u);
}

TEST_F(Upgrade, L3InterfacesKeepTheirTotalsAndClears) {
   const auto vlans =
        open<AllVlanIntfCounters>(TableName::vlanIntfCounters, TableName::vlanIntfClearCounters);
   const auto subIntfs = open<SubIntfCountersDir>(TableName::subIntfCounters);
   const auto subIntfClears = open<SubIntfCountersSnapshotDir>(TableName::subIntfClearCounters);
   EXPECT_EQ(total(record(vlans->table(), "Vlan20", 7, 16.0), "in-octets"), 1900u);
   EXPECT_EQ(total(record(vlans->clearTable(), "Vlan20", 1, 13.0), "in-octets"), 1500u);
   EXPECT_EQ(total(record(subIntfs->table(), "Ethernet2.100", 7, 16.0), "out-pkts"), 10u);
   EXPECT_EQ(total(record(subIntfClears->table(), "Ethernet2.100", 1, 13.0), "out-pkts"), 7u);
}

TEST_F(Upgrade, NatRecordsGetTotalsOfWhatTheChipsHadCounted) {
   const auto nat = open<AllNatCounterDir>(TableName::intfNatCounters);
   const NatCounter vlan = record(nat->table(), "Vlan20", 22, 17.0, 3.0);
   EXPECT_STREQ(vlan.intfId.data(), "Vlan20");
   EXPECT_EQ(vlan.creationTime, 3);
   EXPECT_EQ(vlan.lastUpdate, 17.0);
   EXPECT_EQ(vlan.packets, 5u);
   EXPECT_EQ(vlan.bytes, 500u);
   EXPECT_EQ(vlan.totalPackets, 5u);
   EXPECT_EQ(vlan.totalBytes, 500u);
   EXPECT_EQ(vlan.discontinuityTime, 0.0);
   EXPECT_EQ(record(nat->table(), "Ethernet2.100", 22, 17.0, 3.0).totalPackets, 0u);
}

TEST_F(Upgrade, TheOperatorIsToldOfEachTableOnce) {
   ZelTest::LoggedMessages logged;
   { const auto tables = Vex::openSharedTables(store_); }
   const auto messages = logged.take();
   EXPECT_EQ(messages.size(), TableName::all.size());
   EXPECT_THAT(messages, testing::Contains("VEX_COUNTERS_TABLE_TAKEN_OVER Shared counters table IntfCounters "
                                           "has records of layout version 2; they were taken over"));
   const auto tables = Vex::openSharedTables(store_);
   EXPECT_TRUE(logged.take().empty());
   EXPECT_EQ(tables.intfAllNatCounterDir->counter(Pelt::IntfId("Vlan20")).totalPackets, 5u);
}

template <U32 version>
struct OtherNatCounter : FormerNatCounter {
   static constexpr U32 layoutVersion = version;
};

template <class Other>
void leaveTableOf(const Silo::Store& store, const char* name) {
   Silo::Table<Other> table(store, name, Other{}, {1, 1.0, {}, {}, false});
   table.recordIs("Vlan20", Other{}, 1.0);
}

TEST_F(Upgrade, AnOlderOrUnknownTableBeginsAnewAndSaysSo) {
   leaveTableOf<OtherNatCounter<0>>(store_, "older");
   leaveTableOf<OtherNatCounter<7>>(store_, "unknown");
   EXPECT_EQ(open<AllNatCounterDir>("older")->table().size(), 0u);
   EXPECT_EQ(open<AllNatCounterDir>("unknown")->table().size(), 0u);
   ASSERT_EQ(corruptions_.size(), 2u);
   EXPECT_EQ(corruptions_[0].remedy, Corruption::Remedy::recreated);
   EXPECT_EQ(corruptions_[0].text, "holds records \"NatCounter\" version 0 of 96 bytes, expected records "
                                   "\"NatCounter\" version 2 of 136 bytes");
   EXPECT_EQ(corruptions_[1].remedy, Corruption::Remedy::recreated);
}

TEST_F(Upgrade, RecordsThatAKillOrDamageLeftAreMendedOnTheWay) {
   const Silo::TableGeometry geometry(Silo::layoutOf<FormerNatCounter>());
   for (std::size_t slot : {0u, 1u}) { // of Ethernet2.100, and of Vlan20, which was written last
      ZelTest::overwrite(fileOf(TableName::intfNatCounters), geometry.sizeFor(slot), "\x05");
      ZelTest::overwrite(fileOf(TableName::intfNatCounters),
                         geometry.sizeFor(slot) + sizeof(Silo::RecordSlot), "garbage");
   }
   const auto nat = open<AllNatCounterDir>(TableName::intfNatCounters);
   std::vector<Corruption::Remedy> remedies;
   for (const Corruption& corruption : corruptions_) {
      remedies.push_back(corruption.remedy);
   }
   using Remedy = Corruption::Remedy;
   EXPECT_THAT(remedies, ElementsAre(Remedy::finished, Remedy::restarted, Remedy::takenOver));
   EXPECT_EQ(record(nat->table(), "Vlan20", 22, 17.0, 3.0).totalPackets, 5u);
   record(nat->table(), "Ethernet2.100", 23, Silo::unknownSampleTime);
}

} // namespace

// What the page is told of the tables.
#include "apps/zelexporter/page/PageData.h"

#include "silo/Table.h"
#include "tests/support/TemporaryFolder.h"
#include "vex/PublishedRecords.h"

#include <gtest/gtest.h>
#include <memory>
#include <nlohmann/json.hpp>

namespace {

using Kiln::String;
using nlohmann::json;
namespace Tables = Silo::Interface;
using ZelExporter::PageData;
using ZelExporter::SwitchReading;
using Point = ZlDrop::Point;
using testing::Test;
constexpr double interval = 2.0;
constexpr U32 badFcs = 0;
constexpr U32 aclDeny = 5;
constexpr U32 samePort = 6;
constexpr U64 large = (U64{1} << 63) + 1; // more than a browser's numbers hold

class PageTables : public Test {
 protected:
   template <class Record>
   std::unique_ptr<Silo::Table<Record>> table(const char* name) {
      return std::make_unique<Silo::Table<Record>>(
           store_, name, Record{},
           Silo::TableOptions{16, interval, Silo::ClockDomain::monotonic(), {}, false});
   }

   void publishPort(const char* name, U64 total, U64 delta) {
      Tables::IntfCounters record;
      std::size_t drops = 0;
      while (String(Interface::ethIntfFields[drops].name) != "out-discards") {
         ++drops;
      }
      record.totals[drops] = total;
      record.deltas[drops] = delta;
      record.interval = interval;
      ports_->recordIs(Silo::Key(name), record, Silo::monotonicNow());
   }

   // What a port dropped at ingress for a reason, and the same at the final point, which counts it again.
   void publishReason(const char* name, U64 total, double readTime, double createdTime = 1,
                      U32 reason = aclDeny) {
      Tables::IntfDropCounters record;
      record.createdTime = createdTime;
      for (const Point point : {Point::ingress, Point::final}) {
         const std::size_t place = Tables::IntfDropCounters::place(point, reason);
         record.totals[place] = {total};
         record.readTimes[place] = readTime;
      }
      reasons_->recordIs(Silo::Key(name), record, Silo::monotonicNow());
   }

   void publishPlace(const char* name, const char* chip, U32 device) {
      Tables::IntfPlace place;
      String(chip).copy(place.chip.data(), place.chip.size() - 1);
      place.device = device;
      places_->recordIs(Silo::Key(name), place, Silo::monotonicNow());
   }

   json reasonsIn(SwitchReading* reading) {
      reading->read();
      return json::parse(reading->dropsJson())["reasons"];
   }

   const ZelTest::TemporaryFolder folder_;
   const Silo::Store store_ = Silo::Store::directory(folder_.path());
   std::unique_ptr<Silo::Table<Tables::IntfCounters>> ports_ =
        table<Tables::IntfCounters>(Tables::TableName::intfCounters);
   std::unique_ptr<Silo::Table<Tables::IntfDropCounters>> reasons_ =
        table<Tables::IntfDropCounters>(Tables::TableName::intfDropCounters);
   std::unique_ptr<Silo::Table<Tables::IntfPlace>> places_ =
        table<Tables::IntfPlace>(Tables::TableName::intfPlaces);
};

using PageReading = PageTables;

TEST_F(PageReading, RatesReasonsBetweenTwoReadingsThatAreNotFarApart) {
   const double now = Silo::monotonicNow();
   publishPort("Ethernet1", 0, 0);
   publishReason("Ethernet1", 1000, now - 205);
   SwitchReading reading(store_);
   json reasons = reasonsIn(&reading);
   ASSERT_EQ(reasons.size(), 1U) << "drops were counted again where they were lost in the end";
   EXPECT_EQ(reasons[0]["reason"], "ACL denied");
   EXPECT_TRUE(reasons[0]["rate"].is_null());
   publishReason("Ethernet1", 1500, now - 203);
   EXPECT_TRUE(reasonsIn(&reading)[0]["rate"].is_null()) << "the chip was not read any more";
   publishReason("Ethernet1", 9500, now - 5);
   EXPECT_TRUE(reasonsIn(&reading)[0]["rate"].is_null()) << "a rate of long ago";
   publishReason("Ethernet1", 10000, now - 3);
   EXPECT_EQ(reasonsIn(&reading)[0]["rate"], 250'000);
   EXPECT_EQ(reasonsIn(&reading)[0]["rate"], 250'000) << "nothing was read meanwhile";
   publishReason("Ethernet1", 9000, now - 2);
   EXPECT_TRUE(reasonsIn(&reading)[0]["rate"].is_null()) << "a total went back";
   publishReason("Ethernet1", 40, now - 1, now);
   EXPECT_TRUE(reasonsIn(&reading)[0]["rate"].is_null()) << "of another record";
   EXPECT_EQ(reasonsIn(&reading)[0]["total"], "40");
}

TEST_F(PageReading, RanksByRateAndWithoutAnAgentByTotal) {
   publishPort("Ethernet1", large, 0);
   publishPort("Ethernet2", 100, 20);
   publishPort("Ethernet10", 7, 0);
   SwitchReading reading(store_);
   reading.read();
   json drops = json::parse(reading.dropsJson());
   EXPECT_EQ(drops["ports-by-rate"], true);
   ASSERT_EQ(drops["ports"].size(), 1U);
   EXPECT_EQ(drops["ports"][0]["name"], "Ethernet2");
   EXPECT_EQ(drops["ports"][0]["rate"], 10'000);
   const double now = Silo::monotonicNow();
   publishPort("Ethernet3", 0, 0);
   for (const auto& [name, reason] : {std::pair("Ethernet1", samePort), std::pair("Ethernet3", badFcs),
                                      std::pair("Ethernet10", aclDeny)}) {
      publishReason(name, 50, now - 2, 1, reason);
      reading.read();
      publishReason(name, 2050, now - 1, 1, reason);
   }
   reading.read();
   drops = json::parse(reading.dropsJson());
   ASSERT_EQ(drops["ports"].size(), 2U) << "neither how a switch works nor errors are drops";
   EXPECT_EQ(drops["ports"][0]["name"], "Ethernet10");
   EXPECT_EQ(drops["ports"][0]["rate"], 2'000'000);
   EXPECT_EQ(drops["ports"][0]["parts"][0]["name"], "ACL denied");
   ports_.reset();
   reading.read();
   drops = json::parse(reading.dropsJson());
   EXPECT_EQ(drops["ports-by-rate"], false);
   ASSERT_EQ(drops["ports"].size(), 3U);
   EXPECT_EQ(drops["ports"][0]["total"], std::to_string(large));
}

TEST_F(PageReading, GroupsPortsByChipInTheOrderOfDevices) {
   for (const auto& [name, chip, device] :
        {std::tuple("Ethernet10", "Zel0", 0U), std::tuple("Ethernet2", "Zel1", 1U)}) {
      publishPort(name, 0, 0);
      publishPlace(name, chip, device);
   }
   publishPort("Ethernet1", 0, 0);
   SwitchReading reading(store_);
   reading.read();
   const json ports = json::parse(reading.portsJson());
   EXPECT_EQ(ports["chips"][1]["name"], "Zel1");
   ASSERT_EQ(ports["columns"][1], "chip");
   const json rows = ports["ports"];
   EXPECT_EQ((std::pair{rows[0][0], rows[0][1]}), (std::pair<json, json>{"Ethernet1", nullptr}));
   EXPECT_EQ((std::pair{rows[1][0], rows[1][1]}), (std::pair<json, json>{"Ethernet2", 1}));
   EXPECT_EQ((std::pair{rows[2][0], rows[2][1]}), (std::pair<json, json>{"Ethernet10", 0}));
}

using PageDocuments = PageTables;

TEST_F(PageDocuments, AreSharedUntilTheNextPollButNotPastTheAgentsEnd) {
   publishPort("Ethernet1", 1, 0);
   PageData data(store_);
   const auto first = data.ports();
   EXPECT_GT(first.untilNext, 0);
   EXPECT_LE(first.untilNext, interval);
   publishPort("Ethernet1", 2, 0);
   EXPECT_EQ(data.ports().text, first.text) << "the tables were read twice in an interval";
   ports_.reset();
   EXPECT_NE(data.ports().tag, first.tag) << "nobody sees that the agent is gone";
}

} // namespace

// The client's views of published records.
#include "apps/zelctl/views/RecordViewer.h"

#include "kiln/JsonWriter.h"
#include "silo/Table.h"
#include "tests/support/ErrorText.h"
#include "tests/support/Files.h"
#include "tests/support/TemporaryFolder.h"
#include "vex/PublishedRecords.h"

#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <optional>
#include <regex>
#include <sstream>

namespace {

using Kiln::String;
namespace Tables = Silo::Interface;
constexpr double interval = 2.0;

Tables::IntfCounters counters(U64 inOctets, U64 inFcsErrors = 0) {
   Tables::IntfCounters record;
   for (std::size_t i = 0; i < record.totals.size(); ++i) {
      const String name = Interface::ethIntfFields[i].name;
      record.totals[i] = name == "in-octets" ? inOctets : name == "in-fcs-errors" ? inFcsErrors : 0;
   }
   record.reading.inOctets = inOctets + 1000;
   record.deltas[0] = inOctets / 2;
   record.interval = interval;
   record.isAbsorbed[1] = 1;
   record.suspects = inFcsErrors / 2;
   return record;
}

class RecordViewer : public testing::Test {
 protected:
   template <class Record>
   Silo::Table<Record> table(const char* name) {
      return {store_, name, Record{},
              Silo::TableOptions{.capacity = 16,
                                 .pollingInterval = interval,
                                 .clockDomain = Silo::ClockDomain::monotonic(),
                                 .onCorruption = {},
                                 .isBegunAnew = false}};
   }
   void publishPorts() {
      auto published = table<Tables::IntfCounters>(Tables::TableName::intfCounters);
      const double now = Silo::monotonicNow();
      Tables::IntfCounters created = counters(4000);
      created.createdTime = created.discontinuityTime = now - 118;
      created.speed = 25'000'000'000;
      published.recordIs("Ethernet10", counters(0), now);
      published.recordIs("Ethernet2", counters(18446744073709551615U, 8), now - 5000);
      published.recordIs("Ethernet1", created, now);
   }
   // Replaces the ages of records that were just written by NOW.
   String view(const String& command) {
      std::istringstream words(command);
      const String text = ZelCtl::viewRecords({std::istream_iterator<String>(words), {}}, store_);
      return std::regex_replace(text, std::regex("  [0-9]\\.[0-9]s|: [0-9]\\.[0-9]s ago"), " NOW");
   }
   String refusal(const String& command) {
      return ZelTest::errorOf([&] { view(command); });
   }

   const ZelTest::TemporaryFolder folder_;
   const Silo::Store store_ = Silo::Store::directory(folder_.path());
};

constexpr const char* noAgent = "No agent is running, so nothing newer is published.\n";

TEST_F(RecordViewer, ListsInterfacesInNaturalOrderWithTheirAge) {
   publishPorts();
   EXPECT_EQ(
        view("interfaces"),
        "Interface           Age             In octets  In pkts  In errs  In disc  Out octets  Out pkts  "
        "Out errs  Out disc\n"
        "Ethernet1         NOW                  4000        0        0        0           0         0  "
        "       0         0\n"
        "Ethernet2   5000s stale  18446744073709551615        0        0        0           0         0  "
        "       0         0\n"
        "Ethernet10        NOW                     0        0        0        0           0         0  "
        "       0         0\n" +
             String(noAgent));
}

TEST_F(RecordViewer, KeywordsChooseWhatIsShown) {
   publishPorts();
   const std::vector<std::pair<String, std::vector<String>>> cases = {
        {"interfaces nonzero raw", {"Ethernet1 .* 5000 ", "Ethernet2 .* 999 ", "Ethernet10 .* 1000 "}},
        {"interfaces nonzero", {"Ethernet1 .* 4000 ", "Ethernet2 .* 18446744073709551615 "}},
        // An absorbed step has no rate. The others are divided by the interval, octets as bits.
        {"interfaces rates nonzero", {"Ethernet1 .* 8000 +- +0 ", "Ethernet2 .* 18446744073709551615 +- "}},
        {"interfaces errors nonzero", {"Ethernet2 .* stale +0 +8 .* 4 +never"}},
        {"interfaces Ethernet2 errors nonzero",
         {"ago, stale, counting for an unknown time; last discontinuity: never; suspect steps: 4",
          " Counter ", "in-fcs-errors +8"}},
        {"interfaces Ethernet1 rat non",
         {"Ethernet1: sampled 0.[0-9]s ago, counting for 118s, at 25 Gb/s; last discontinuity: its "
          "creation; ",
          " Counter .*Total .*Per second", "in-octets +4000 +1000"}},
   };
   for (const auto& [command, lines] : cases) {
      std::istringstream shown(view(command));
      std::vector<String> seen;
      for (String line; std::getline(shown, line);) {
         if (line.rfind("Interface", 0) != 0 && line + "\n" != noAgent) {
            seen.push_back(line);
         }
      }
      ASSERT_EQ(seen.size(), lines.size()) << command;
      for (std::size_t i = 0; i < lines.size(); ++i) {
         EXPECT_TRUE(std::regex_search(seen[i], std::regex(lines[i]))) << command << ": " << seen[i];
      }
   }
}

TEST_F(RecordViewer, JsonHoldsIntegersOnly) {
   publishPorts();
   String text = view("interfaces json rates nonzero Ethernet2 Ethernet1");
   text = std::regex_replace(text, std::regex("\\s"), "");
   text = std::regex_replace(text, std::regex("\"age-ms\":[0-9]{1,3},"), "\"age-ms\":0,");
   text = std::regex_replace(text, std::regex("\"age-ms\":500[0-9]{4},"), "\"age-ms\":5000000,");
   text = std::regex_replace(text, std::regex("-age-ms\":118[0-9]{3},"), "-age-ms\":118000,");
   EXPECT_EQ(text, "{\"table\":\"IntfCounters\",\"polling-interval-ms\":2000,\"writer-alive\":false,"
                   "\"interfaces\":[{\"name\":\"Ethernet1\",\"state\":\"ok\",\"age-ms\":0,\"stale\":false,"
                   "\"generation\":1,\"discontinuity-age-ms\":118000,\"created-age-ms\":118000,"
                   "\"speed\":25000000000,\"suspects\":0,"
                   "\"totals\":{\"in-octets\":4000},\"rates\":{\"in-octets\":1000}},"
                   "{\"name\":\"Ethernet2\",\"state\":\"ok\",\"age-ms\":5000000,\"stale\":true,"
                   "\"generation\":1,\"discontinuity-age-ms\":null,\"created-age-ms\":null,"
                   "\"speed\":null,\"suspects\":4,"
                   "\"totals\":{\"in-octets\":18446744073709551615,\"in-fcs-errors\":8},"
                   "\"rates\":{\"in-octets\":4611686018427387904}}]}");
   EXPECT_EQ(Kiln::JsonWriter::quotedString("a\"\\\n\x7f\xff\x01"),
             "\"a\\\"\\\\\\u000a\\u007f\\u00ff\\u0001\"");
}

TEST_F(RecordViewer, ASampleTimeThatIsYetToComeIsNeitherFreshNorAnAge) {
   auto published = table<Tables::IntfCounters>(Tables::TableName::intfCounters);
   Tables::IntfCounters record = counters(4000);
   record.discontinuityTime = record.createdTime = Silo::monotonicNow() + 1000;
   published.recordIs("Ethernet1", record, Silo::monotonicNow() + 1000);
   EXPECT_TRUE(std::regex_search(view("interfaces"), std::regex("\nEthernet1  unknown stale  ")))
        << view("interfaces");
   EXPECT_EQ(view("interfaces Ethernet1").substr(0, 58),
             "Ethernet1: sampled at an unknown time, stale, counting for");
   const String json = view("interfaces json");
   EXPECT_NE(json.find("\"age-ms\": null,\n      \"stale\": true"), String::npos) << json;
   // Nor are times that are yet to come in a record whose sample time is good.
   published.recordIs("Ethernet1", record, Silo::monotonicNow());
   EXPECT_NE(view("interfaces Ethernet1").find("counting for an unknown time"), String::npos);
   EXPECT_NE(view("interfaces json").find("\"created-age-ms\": null"), String::npos);
}

TEST_F(RecordViewer, DamagedRecordsAreToldApartFromAbsentOnes) {
   publishPorts();
   const String path = folder_.path() + "/" + Tables::TableName::intfCounters;
   const U64 octets = 4000;
   const std::size_t at =
        ZelTest::bytesOf(path).rfind(String(reinterpret_cast<const char*>(&octets), sizeof octets));
   ASSERT_NE(at, String::npos);
   ZelTest::overwrite(path, at, "!");
   EXPECT_NE(view("interfaces").find("\nEthernet1   corrupt: checksum mismatch\n"), String::npos)
        << view("interfaces");
   EXPECT_EQ(view("interfaces Ethernet1"), "Ethernet1: corrupt: checksum mismatch\n" + String(noAgent));
   EXPECT_NE(view("interfaces json").find("\"state\": \"corrupt\"\n"), String::npos);
   EXPECT_EQ(refusal("interfaces Ethernet1 Ethernet3"),
             "unknown interface 'Ethernet3': expected Ethernet1 to Ethernet2 or Ethernet10; keywords are "
             "nonzero, rates, errors, raw, json");
   EXPECT_EQ(refusal("interfaces ra"), "'ra' is ambiguous: expected rates or raw");
   EXPECT_EQ(refusal("interfaces ethernet2 json").substr(0, 58),
             "unknown interface 'ethernet2': did you mean Ethernet2?; ke");
}

TEST_F(RecordViewer, AWatchRefusesJsonAndRates) {
   publishPorts();
   for (const auto& [keyword, error] : {std::pair{"js", "watch shows tables: leave out 'json'"},
                                        std::pair{"rates", "watch shows rates anyway: leave out 'rates'"}}) {
      EXPECT_EQ(ZelTest::errorOf([&, word = keyword] {
                   ZelCtl::showRecords({"interfaces", word}, store_);
                }),
                error);
   }
}

TEST_F(RecordViewer, AnInterfaceComesBeforeTheKeywordThatItBegins) {
   auto published = table<Tables::L3IntfCounters>(Tables::TableName::vlanIntfCounters);
   EXPECT_EQ(view("vlans"), "Interface  Age  In octets  In pkts  Out octets  Out pkts  Discont\n  none\n");
   published.recordIs("raw", {}, Silo::monotonicNow());
   published.recordIs("Vlan20", {}, Silo::monotonicNow());
   EXPECT_EQ(view("vlans raw").find("Vlan20"), String::npos) << view("vlans raw");
}

TEST_F(RecordViewer, AMissingTableIsNamed) {
   EXPECT_NE(refusal("vlans").find(Tables::TableName::vlanIntfCounters), String::npos) << refusal("vlans");
}

TEST_F(RecordViewer, QueuesAndL3InterfacesHaveTheirOwnColumns) {
   Tables::IntfQueueCounters queues;
   queues.totals[3] = {10, 1000, 2};
   queues.deltas[3] = {2, 100, 0};
   queues.interval = interval;
   queues.present = 0b1001;
   queues.createdTime = queues.discontinuityTime = Silo::monotonicNow() - 118;
   table<Tables::IntfQueueCounters>(Tables::TableName::intfQueueCounters)
        .recordIs("Ethernet1", queues, Silo::monotonicNow());
   EXPECT_EQ(view("queues"), "Interface  Queue   Age  Packets  Bytes  Drops   Discont\n"
                             "Ethernet1      0 NOW        0      0      0  creation\n"
                             "Ethernet1      3 NOW       10   1000      2  creation\n" +
                                  String(noAgent));
   EXPECT_EQ(view("queues rates nonzero"), "Interface  Queue   Age  Packets/s  Bit/s  Drops/s   Discont\n"
                                           "Ethernet1      3 NOW          1    400        0  creation\n" +
                                                String(noAgent));
   Tables::L3IntfCounters vlan;
   vlan.totals = {1, 2, 3, 4};
   table<Tables::L3IntfCounters>(Tables::TableName::vlanIntfCounters)
        .recordIs("Vlan20", vlan, Silo::monotonicNow());
   EXPECT_EQ(view("vlans"), "Interface   Age  In octets  In pkts  Out octets  Out pkts  Discont\n"
                            "Vlan20    NOW          1        2           3         4    never\n" +
                                 String(noAgent));
   Tables::NatCounter nat;
   nat.creationTime = static_cast<S64>(Silo::monotonicNow()) - 500;
   nat.packets = 1;
   nat.totalPackets = 7;
   nat.totalBytes = 700;
   table<Tables::NatCounter>(Tables::TableName::intfNatCounters)
        .recordIs("Vlan20", nat, Silo::monotonicNow());
   EXPECT_TRUE(std::regex_search(view("nat"), std::regex("Vlan20 +NOW +7 +700 +50[0-9]s\n"))) << view("nat");
}

} // namespace

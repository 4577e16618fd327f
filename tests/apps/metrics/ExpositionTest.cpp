// What is published, as metrics: complete, exact, and nothing that may not be true any more.
#include "apps/zelctl/views/RecordViewer.h"
#include "kiln/Choices.h"
#include "kiln/Time.h"
#include "silo/Table.h"
#include "tests/apps/metrics/ReadScrape.h"
#include "tests/support/Files.h"
#include "tests/support/TemporaryFolder.h"
#include "vex/PublishedChip.h"
#include "vex/PublishedRecords.h"

#include <cstdlib>
#include <cstring>
#include <fstream>
#include <gmock/gmock.h>
#include <memory>
#include <nlohmann/json.hpp>
#include <set>
#include <sstream>

namespace {

using Kiln::String;
using ZelMetrics::Format;
using ZelTest::Labels;
using ZelTest::ReadScrape;
namespace Tables = Silo::Interface;
namespace TableName = Silo::Interface::TableName;

constexpr double interval = 2.0;
constexpr double createdUnixTime = 1'795'000'000.125;
constexpr const char* createdText = "1795000000.125";

// A label of a hostile table, and what an interface may be called at worst.
constexpr const char* hostileName = R"(Eth"er\net{1},}=#~)";

template <std::size_t room>
void assign(std::array<char, room>& text, std::string_view value) {
   text = {};
   std::copy_n(value.data(), std::min(value.size(), room), text.data());
}

class Exposition : public testing::Test {
 protected:
   template <class Record>
   struct Publisher {
      Silo::Table<Record> table;
      Record record{};

      Publisher(const Silo::Store& store, const char* name)
           : table(store, name, Record{},
                   Silo::TableOptions{.capacity = 8,
                                      .pollingInterval = interval,
                                      .clockDomain = Silo::ClockDomain::monotonic(),
                                      .onCorruption = {}}) {}
      void publish(const char* key, double age = 0) {
         table.recordIs(key, record, Silo::monotonicNow() - age);
      }
   };
   template <class Record>
   Publisher<Record> publisher(const char* name) {
      return {store_, name};
   }

   // Another count of up to 64 bits each time.
   U64 count() { return ++counted_ * 0x9e37'79b9'7f4a'7c15; }

   template <class Record>
   void created(Record& record) {
      record.createdTime = Silo::monotonicNow() - 100;
      record.createdUnixTime = createdUnixTime;
   }
   template <class Record>
   void fillPlaces(Record& record) {
      created(record);
      for (std::size_t place = 0; place < Record::placeCount; ++place) {
         record.readTimes[place] = Silo::monotonicNow();
         for (U64& total : record.totals[place]) {
            total = count();
         }
      }
   }
   Tables::IntfCounters portRecord() {
      Tables::IntfCounters record;
      created(record);
      std::ranges::generate(record.totals, [this] { return count(); });
      record.suspects = 3;
      record.speed = 25'000'000'004;
      record.discontinuityTime = record.createdTime + 7.5;
      return record;
   }

   ReadScrape scrape(Format format = Format::openMetrics, std::string_view collect = {}) {
      ZelMetrics::Collectors collectors;
      if (!collect.empty()) {
         collectors.are(collect);
      }
      String whole;
      ZelMetrics::Exposition exposition(store_, collectors);
      exposition.scrape(format, &whole);
      ReadScrape read = ZelTest::readScrape(format, whole);
      // In pieces it is the same, but for ages.
      String joined;
      exposition.scrape(format, [&](std::string_view piece) { joined += piece; });
      EXPECT_EQ(ZelTest::readScrape(format, joined).samples.size(), read.samples.size());
      return read;
   }
   String view(const String& command) {
      std::istringstream words(command);
      return ZelCtl::viewRecords({std::istream_iterator<String>(words), {}}, store_, 0);
   }

   const ZelTest::TemporaryFolder folder_;
   const Silo::Store store_ = Silo::Store::directory(folder_.path());

 private:
   U64 counted_ = 0;
};

// The name of a counter in text and JSON, from that of its sample.
String counterName(const String& sample, const String& prefix, const Labels& labels) {
   String name = sample.substr(prefix.size(), sample.size() - prefix.size() - String("_total").size());
   const auto replace = [&name](std::string_view from, std::string_view to) {
      if (const std::size_t at = name.find(from); at != String::npos) {
         name.replace(at, from.size(), to);
      }
   };
   std::ranges::replace(name, '_', '-');
   replace("dropped-packets", "drops");
   if (labels.contains("queue")) {
      return "queue." + labels.at("queue") + "." + name;
   }
   if (prefix != "zel_nat_") {
      replace("bytes", "octets");
      replace("packets", "pkts");
   }
   if (labels.contains("priority")) {
      return "priority." + labels.at("priority") + "." + name;
   }
   if (labels.contains("size")) {
      String size = labels.at("size");
      size += size.back() == '-' ? "or-more" : "";
      replace("by-size", size + "-octets");
   }
   return name;
}

// The counters of the table `view` of one interface, by name, as metrics have them.
std::map<String, String> totalsIn(const ReadScrape& scrape, const String& prefix, const String& interface) {
   std::map<String, String> totals;
   for (const auto& [sample, value] : scrape.samples) {
      const auto& [name, labels] = sample;
      const bool isOther =
           labels.contains("reason") || labels.contains("class") || name.ends_with("steps_total");
      if (name.starts_with(prefix) && name.ends_with("_total") && labels.at("interface") == interface &&
          !isOther) {
         totals[counterName(name, prefix, labels)] = value;
      }
   }
   return totals;
}

// In the JSON of the view, without what it sums up of another table.
std::map<String, String> totalsInJson(const String& json) {
   std::map<String, String> totals;
   const auto document = nlohmann::json::parse(json);
   for (const auto& [name, value] : document["interfaces"][0]["totals"].items()) {
      if (name != "out-queue-drops" && !value.is_null()) { // null: never read
         totals[name] = std::to_string(value.get<U64>());
      }
   }
   return totals;
}

// In the lines `   name   total` of the view's text.
std::map<String, String> totalsInText(const String& text) {
   std::map<String, String> totals;
   std::istringstream lines(text);
   for (String line; std::getline(lines, line);) {
      std::istringstream words(line);
      String name;
      String total;
      if (line.starts_with("   ") && words >> name >> total && name != "Counter" &&
          name != "out-queue-drops") {
         totals[name] = total;
      }
   }
   return totals;
}

TEST_F(Exposition, TextJsonAndMetricsTellTheSameNumbersOfEveryCounter) {
   auto ports = publisher<Tables::IntfCounters>(TableName::intfCounters);
   ports.record = portRecord();
   ports.record.totals[0] = 18446744073709551615U;
   ports.publish("Ethernet1");
   auto queues = publisher<Tables::IntfQueueCounters>(TableName::intfQueueCounters);
   queues.record.present = 0x1'00ff;
   queues.record.reported = 0x1'007f; // but queue 7
   created(queues.record);
   for (std::size_t queue = 0; queue < 17; ++queue) {
      if (((queues.record.reported >> queue) & 1) != 0) {
         queues.record.totals[queue] = {count() >> 8, count() >> 8, count() >> 8};
      }
   }
   queues.publish("Ethernet1");
   auto vlans = publisher<Tables::L3IntfCounters>(TableName::vlanIntfCounters);
   auto subIntfs = publisher<Tables::L3IntfCounters>(TableName::subIntfCounters);
   for (auto* const l3 : {&vlans, &subIntfs}) {
      created(l3->record);
      std::ranges::generate(l3->record.totals, [this] { return count(); });
   }
   vlans.publish("Vlan100");
   subIntfs.publish("Ethernet1.100");
   auto nat = publisher<Tables::NatCounter>(TableName::intfNatCounters);
   created(nat.record);
   nat.record.lastUpdate = 1;
   nat.record.totalPackets = count();
   nat.record.totalBytes = count();
   nat.publish("Vlan100");

   const ReadScrape metrics = scrape();
   struct View {
      String command;
      String interface;
      String prefix;
      std::size_t counters;
   };
   for (const auto& [command, interface, prefix, counters] :
        {View{"interfaces", "Ethernet1", "zel_interface_", 69}, View{"queues", "Ethernet1", "zel_queue_", 24},
         View{"vlans", "Vlan100", "zel_vlan_", 4},
         View{"subinterfaces", "Ethernet1.100", "zel_subinterface_", 4},
         View{"nat", "Vlan100", "zel_nat_", 2}}) {
      const auto totals = totalsIn(metrics, prefix, interface);
      EXPECT_EQ(totals.size(), counters) << command;
      EXPECT_EQ(totals, totalsInJson(view(Kiln::joined({command, "json", interface}, " "))));
      const String text = view(Kiln::joined({command, "exact", interface}, " "));
      if (command == "interfaces") {
         EXPECT_EQ(totals, totalsInText(text));
      }
      for (const auto& [name, total] : totals) {
         EXPECT_THAT(text, testing::HasSubstr(total)) << name;
      }
   }
   const Labels labels{{"interface", "Ethernet1"}};
   EXPECT_EQ(metrics.value("zel_interface_suspect_steps_total", labels), "3");
   EXPECT_EQ(metrics.value("zel_interface_speed_bytes", labels), "3125000000.500");
   EXPECT_EQ(metrics.value("zel_interface_discontinuity_timestamp_seconds", labels), "1795000007.625");
   EXPECT_EQ(metrics.value("zel_interface_in_bytes_created", labels), createdText);
   EXPECT_EQ(metrics.families.at("zel_interface_in_bytes").unit, "bytes");
   EXPECT_THAT(metrics.families.at("zel_interface_in_bytes").help,
               testing::HasSubstr("/interfaces/interface/state/counters/in-octets"));
   EXPECT_EQ(metrics.value("zel_agent_up"), "1");
}

// Everything that chips count, at an interface and a pipe.
class ChipRecords : public Exposition {
 protected:
   ChipRecords() {
      ports_.record = portRecord();
      places_.record.devicePort = 17;
      places_.record.speed = 25'000'000'000;
      assign(places_.record.chip, "Zel0");
      fillPlaces(drops_.record);
      fillPlaces(classes_.record);
      assign(classes_.record.classNames[3], "bgp");
      fillPlaces(stages_.record);
      fillPlaces(pipeDrops_.record);
      fillPlaces(tm_.record);
      tm_.record.readings[5] = {77, 0};
      tm_.record.readings[6] = {99, 0};
      fillPlaces(health_.record);
      health_.record.verdict = Tables::ChipHealth::Verdict::silent;
      health_.record.oldestReadTimes = {Silo::monotonicNow() - 50, 0, 1, 0};
      health_.record.isPolled = {1, 1, 0, 0};
      health_.record.outstanding = 5;
      health_.record.pendingVlans = 6;
      assign(agent_.record.version, "1.2.3");
      agent_.record.startedUnixTime = createdUnixTime;
      agent_.record.deadObjects = 4;
      agent_.record.longestHold = 0.001234;
      agent_.record.heldTime = 2.5;
      agent_.record.holds = {100, 20, 3, 0, 0, 1};
   }
   void publish() {
      ports_.publish("Ethernet1");
      places_.publish("Ethernet1");
      drops_.publish("Ethernet1");
      classes_.publish("Ethernet1");
      stages_.publish("Zel0:3");
      pipeDrops_.publish("Zel0:3");
      tm_.publish("Zel0:3");
      health_.publish("Zel0");
      agent_.publish(Tables::agentKey);
   }

   Publisher<Tables::IntfCounters> ports_{store_, TableName::intfCounters};
   Publisher<Tables::IntfPlace> places_{store_, TableName::intfPlaces};
   Publisher<Tables::IntfDropCounters> drops_{store_, TableName::intfDropCounters};
   Publisher<Tables::IntfPdpCounters> classes_{store_, TableName::intfPdpCounters};
   Publisher<Tables::PipeStageCounters> stages_{store_, TableName::pipeStageCounters};
   Publisher<Tables::PipeDropCounters> pipeDrops_{store_, TableName::pipeDropCounters};
   Publisher<Tables::PipeTmCounters> tm_{store_, TableName::pipeTmCounters};
   Publisher<Tables::ChipHealth> health_{store_, TableName::chipHealth};
   Publisher<Tables::AgentHealth> agent_{store_, TableName::agentHealth};
   const Labels pipe_{{"chip", "Zel0"}, {"pipe", "3"}};
};

Labels with(Labels labels, const char* name, const String& value) {
   labels[name] = value;
   return labels;
}

TEST_F(ChipRecords, AreToldWholeByPlace) {
   publish();
   const ReadScrape metrics = scrape();
   std::set<String> told; // totals
   for (const auto& [sample, value] : metrics.samples) {
      if (sample.first.ends_with("_total")) {
         told.insert(value);
      }
   }
   // Whatever place and value it is, each total is there under some name.
   const auto expectAll = [&](const auto& record, auto isLevel) {
      for (std::size_t place = 0; place < record.totals.size(); ++place) {
         for (const U64 total : record.totals[place]) {
            EXPECT_EQ(told.contains(std::to_string(total)), !isLevel(place)) << place << " " << total;
         }
      }
   };
   const auto isNone = [](std::size_t) { return false; };
   expectAll(drops_.record, isNone);
   expectAll(classes_.record, isNone);
   expectAll(stages_.record, isNone);
   expectAll(pipeDrops_.record, isNone);
   expectAll(tm_.record, &Tables::PipeTmCounters::isLevel);
   expectAll(health_.record, isNone);

   const Labels port{{"interface", "Ethernet1"}};
   const auto text = [](U64 value) { return std::to_string(value); };
   using Drops = Tables::IntfDropCounters;
   EXPECT_EQ(metrics.value("zel_interface_dropped_packets_total",
                           with(with(port, "point", "ingress"), "reason", "ACL denied")),
             text(drops_.record.totals[5][0]));
   EXPECT_EQ(metrics.value("zel_interface_dropped_packets_total",
                           with(with(port, "point", "egress"), "reason", "reason 12")),
             text(drops_.record.totals[Drops::place(ZlDrop::Point::egress, 12)][0]));
   EXPECT_EQ(metrics.value("zel_interface_lost_packets_total", with(port, "reason", "lost in the queues")),
             text(drops_.record.totals[Drops::place(ZlDrop::Point::final, 2)][0]));
   EXPECT_EQ(metrics.value("zel_interface_class_packets_total", with(with(port, "class", "bgp"), "id", "3")),
             text(classes_.record.totals[3][0]));
   EXPECT_EQ(
        metrics.value("zel_interface_class_packets_total", with(with(port, "class", "class 31"), "id", "31")),
        text(classes_.record.totals[31][0]));
   EXPECT_EQ(metrics.value("zel_pipe_stage_dropped_packets_total", with(pipe_, "stage", "ingress-deparser")),
             text(stages_.record.totals[3][Tables::PipeStageCounters::dropped]));
   EXPECT_EQ(metrics.value("zel_pipe_dropped_packets_total", with(pipe_, "place", "stage 4")),
             text(pipeDrops_.record.totals[5][0]));
   EXPECT_EQ(metrics.value("zel_traffic_manager_bytes_total", with(pipe_, "counter", "dropped")),
             text(tm_.record.totals[2][1]));
   EXPECT_EQ(metrics.value("zel_traffic_manager_cells", pipe_), "77");
   EXPECT_EQ(metrics.value("zel_traffic_manager_port_cells_peak", pipe_), "99");
   EXPECT_EQ(metrics.value(
                  "zel_interface_info",
                  {{"interface", "Ethernet1"}, {"chip", "Zel0"}, {"port", "17"}, {"speed", "25000000000"}}),
             "1");

   const Labels chip{{"chip", "Zel0"}};
   EXPECT_EQ(metrics.families.at("zel_chip_verdict").type, "stateset");
   EXPECT_EQ(metrics.value("zel_chip_verdict", with(chip, "zel_chip_verdict", "silent")), "1");
   EXPECT_EQ(metrics.value("zel_chip_verdict", with(chip, "zel_chip_verdict", "ok")), "0");
   EXPECT_EQ(metrics.value("zel_chip_upsets_total", chip), text(health_.record.totals[4][0]));
   EXPECT_EQ(metrics.value("zel_chip_requests_outstanding", chip), "5");
   EXPECT_EQ(metrics.value("zel_chip_pending_vlans", chip), "6");
   EXPECT_NEAR(std::stod(metrics.value("zel_chip_read_age_seconds", with(chip, "kind", "mac"))), 50, 20);
   EXPECT_EQ(metrics.count("zel_chip_read_age_seconds"), 1); // of the others none came, or is made
   EXPECT_EQ(metrics.value("zel_agent_info", {{"version", "1.2.3"}}), "1");
   EXPECT_EQ(metrics.value("zel_agent_started_timestamp_seconds"), createdText);
   EXPECT_EQ(metrics.value("zel_agent_dead_objects"), "4");
   EXPECT_EQ(metrics.value("zel_agent_lock_longest_hold_seconds"), "0.001234");
   const char* const holds = "zel_agent_lock_hold_seconds";
   EXPECT_EQ(metrics.value(String(holds) + "_bucket", {{"le", "0.0001"}}), "120");
   EXPECT_EQ(metrics.value(String(holds) + "_bucket", {{"le", "0.1"}}), "123");
   EXPECT_EQ(metrics.value(String(holds) + "_bucket", {{"le", "+Inf"}}), "124");
   EXPECT_EQ(metrics.value(String(holds) + "_count"), "124");
   EXPECT_EQ(metrics.value(String(holds) + "_sum"), "2.500000");
}

TEST_F(ChipRecords, BothFormatsTellTheSameAndACheckerHasNothingToSay) {
   publish();
   const ReadScrape open = scrape();
   const ReadScrape plain = scrape(Format::prometheusText);
   for (const auto& [sample, value] : open.samples) {
      const String& name = sample.first;
      const bool isAge = name.find("age_seconds") != String::npos || name.find("duration") != String::npos ||
                         name.find("_up_seconds") != String::npos;
      if (name.ends_with("_created")) {
         EXPECT_FALSE(plain.samples.contains(sample)) << name;
      } else {
         EXPECT_TRUE(plain.samples.contains(sample) && (isAge || plain.samples.at(sample) == value)) << name;
      }
   }
   if (std::system("command -v promtool >/dev/null") != 0) {
      GTEST_SKIP() << "no promtool (package prometheus)";
   }
   String text;
   ZelMetrics::Exposition(store_, {}).scrape(Format::prometheusText, &text);
   const String path = folder_.path() + "/metrics.text";
   std::ofstream(path) << text;
   const String said = path + ".said";
   EXPECT_EQ(std::system(("promtool check metrics <" + path + " >" + said + " 2>&1").c_str()), 0);
   EXPECT_EQ(ZelTest::bytesOf(said), "");
}

TEST_F(ChipRecords, WhatMayNotBeTrueAnyMoreIsLeftOut) {
   drops_.record.readTimes[0] = 0;                          // never read
   drops_.record.readTimes[1] = Silo::monotonicNow() - 100; // stale, though others are not
   drops_.record.totals[9] = {0};                           // a reason without a name
   publish();
   tm_.publish("Zel1:0", 3 * interval + 1);
   ports_.publish("Ethernet2", 3 * interval + 1);
   ports_.publish("Ethernet3", -100); // a time that is yet to come
   const ReadScrape metrics = scrape();
   const Labels stale{{"interface", "Ethernet2"}};
   EXPECT_NEAR(std::stod(metrics.value("zel_interface_age_seconds", stale)), 3 * interval + 1, 0.9);
   EXPECT_EQ(metrics.value("zel_interface_age_seconds", {{"interface", "Ethernet3"}}), "");
   for (const char* const name : {"zel_interface_in_bytes_total", "zel_interface_in_bytes_created",
                                  "zel_interface_suspect_steps_total", "zel_interface_speed_bytes"}) {
      EXPECT_EQ(metrics.count(name), 1) << name;
   }
   EXPECT_EQ(metrics.count("zel_interface_age_seconds"), 2);
   EXPECT_EQ(metrics.count("zel_traffic_manager_cells"), 1);
   EXPECT_EQ(metrics.count("zel_traffic_manager_age_seconds"), 2);
   EXPECT_EQ(metrics.count("zel_interface_dropped_packets_total"), 2 * 16 - 3);

   // Of an agent that is gone only ages are left.
   ASSERT_EQ(metrics.value("zel_agent_up"), "1");
   for (const char* const name : {TableName::intfCounters, TableName::intfDropCounters}) {
      // A copy has no writer.
      const String path = folder_.path() + "/" + name;
      const String bytes = ZelTest::bytesOf(path);
      std::remove(path.c_str());
      std::ofstream(path) << bytes;
   }
   const ReadScrape gone = scrape(Format::openMetrics, "interfaces,drops");
   EXPECT_EQ(gone.value("zel_agent_up"), "0");
   EXPECT_EQ(gone.count("zel_interface_in_bytes_total"), 0);
   EXPECT_EQ(gone.count("zel_interface_dropped_packets_total"), 0);
   EXPECT_EQ(gone.count("zel_interface_drops_age_seconds"), 1);
}

TEST_F(Exposition, ACreationTimeIsTheSameInEveryScrapeOfARecordsLife) {
   auto ports = publisher<Tables::IntfCounters>(TableName::intfCounters);
   ports.record = portRecord();
   ports.record.createdUnixTime = 1'795'000'000.9996;
   const Labels labels{{"interface", "Ethernet1"}};
   ZelMetrics::Exposition exposition(store_, {});
   std::set<String> created;
   std::set<String> broken;
   String text;
   const auto scrapeAgain = [&] {
      exposition.scrape(Format::openMetrics, &text);
      return ZelTest::readScrape(Format::openMetrics, text);
   };
   for (int i = 0; i < 5; ++i) {
      ports.record.totals[0] += 1000;
      ports.publish("Ethernet1", 0.1 * i);
      const ReadScrape metrics = scrapeAgain();
      EXPECT_EQ(metrics.value("zel_interface_in_bytes_total", labels),
                std::to_string(ports.record.totals[0]));
      created.insert(metrics.value("zel_interface_in_bytes_created", labels));
      broken.insert(metrics.value("zel_interface_discontinuity_timestamp_seconds", labels));
   }
   EXPECT_THAT(created, testing::ElementsAre("1795000001.000"));
   EXPECT_EQ(broken.size(), 1);
   // Another life, and one whose begin nobody knows.
   ports.record.createdUnixTime += 60;
   ports.publish("Ethernet1");
   EXPECT_EQ(scrapeAgain().value("zel_interface_in_bytes_created", labels), "1795000061.000");
   ports.record.createdUnixTime = 0;
   ports.publish("Ethernet1");
   EXPECT_EQ(scrapeAgain().count("zel_interface_in_bytes_created"), 0);
   EXPECT_EQ(scrapeAgain().count("zel_interface_in_bytes_total"), 1);
}

TEST_F(ChipRecords, HostileNamesStayLabelsOfOneLine) {
   assign(classes_.record.classNames[0], "a\nb\\\"c\x01\xff");
   assign(places_.record.chip, String(64, 'x')); // without an end
   classes_.record.classNames[1].fill('y');
   classes_.record.classNames[2].fill('y'); // the same name again
   publish();
   ports_.publish(hostileName);
   classes_.publish(hostileName);
   // Other classes than the first record's.
   assign(classes_.record.classNames[0], "other");
   classes_.publish("Ethernet2");
   stages_.publish("no pipe");
   stages_.publish(":1");
   agent_.publish("another agent");
   for (const Format format : {Format::openMetrics, Format::prometheusText}) {
      const ReadScrape metrics = scrape(format);
      EXPECT_EQ(metrics.value("zel_interface_in_bytes_total", {{"interface", hostileName}}),
                std::to_string(ports_.record.totals[0]));
      const String total = std::to_string(classes_.record.totals[0][0]);
      for (const auto& [interface, name] :
           {std::pair{hostileName, "a?b\\\"c??"}, std::pair{"Ethernet1", "a?b\\\"c??"},
            std::pair{"Ethernet2", "other"}}) {
         EXPECT_EQ(metrics.value("zel_interface_class_packets_total",
                                 {{"interface", interface}, {"class", name}, {"id", "0"}}),
                   total)
              << interface;
      }
      EXPECT_EQ(metrics.value("zel_scrape_unreadable_records", {{"collector", "pipeline"}}), "2");
      EXPECT_EQ(metrics.value("zel_scrape_unreadable_records", {{"collector", "health"}}), "1");
      EXPECT_EQ(metrics.count("zel_agent_info"), 1);
   }
}

TEST_F(ChipRecords, DamagedRecordsAndMissingTablesAreCountedAndLeftOut) {
   publish();
   ports_.publish("Ethernet2");
   ports_.publish("Ethernet3");
   const String path = folder_.path() + "/" + TableName::intfCounters;
   const String bytes = ZelTest::bytesOf(path);
   constexpr std::size_t keyInSlot = 64;
   ZelTest::overwrite(path, bytes.rfind(String("Ethernet2\0", 10)) + keyInSlot + 100, "!!!");  // a count
   ZelTest::overwrite(path, bytes.rfind(String("Ethernet3\0", 10)) - keyInSlot, String(1, 1)); // half-written
   std::remove((folder_.path() + "/" + TableName::chipHealth).c_str());
   const ReadScrape metrics = scrape();
   EXPECT_EQ(metrics.count("zel_interface_in_bytes_total"), 1);
   EXPECT_EQ(metrics.count("zel_interface_age_seconds"), 1);
   EXPECT_EQ(metrics.value("zel_scrape_unreadable_records", {{"collector", "interfaces"}}), "2");
   EXPECT_EQ(metrics.value("zel_scrape_collector_errors", {{"collector", "interfaces"}}), "0");
   EXPECT_EQ(metrics.value("zel_scrape_collector_errors", {{"collector", "health"}}), "1");
   EXPECT_EQ(metrics.value("zel_scrape_collector_errors", {{"collector", "queues"}}), "1"); // was never there
   EXPECT_EQ(metrics.count("zel_chip_upsets_total"), 0);
   EXPECT_EQ(metrics.count("zel_agent_dead_objects"), 1);
   // What is not collected is neither read nor missed.
   const ReadScrape some = scrape(Format::openMetrics, "drops");
   EXPECT_EQ(some.count("zel_scrape_collector_errors"), 1);
   EXPECT_EQ(some.count("zel_interface_in_bytes_total"), 0);
   EXPECT_EQ(some.value("zel_agent_up"), "1");
}

TEST_F(Exposition, TellsThatNoAgentRunsAndFindsOneThatComes) {
   ZelMetrics::Exposition exposition(store_, {});
   String text;
   exposition.scrape(Format::openMetrics, &text);
   const ReadScrape none = ZelTest::readScrape(Format::openMetrics, text);
   EXPECT_EQ(none.value("zel_agent_up"), "0");
   EXPECT_EQ(none.value("zel_scrape_collector_errors", {{"collector", "interfaces"}}), "1");
   EXPECT_EQ(none.count("zel_interface_in_bytes_total"), 0);
   auto ports = publisher<Tables::IntfCounters>(TableName::intfCounters);
   ports.publish("Ethernet1");
   exposition.scrape(Format::openMetrics, &text);
   const ReadScrape some = ZelTest::readScrape(Format::openMetrics, text);
   EXPECT_EQ(some.value("zel_agent_up"), "1");
   EXPECT_EQ(some.count("zel_interface_in_bytes_total"), 1);
}

// docs/metrics.md has the table of families; its rows follow from the one that the exposition is made of.
TEST(Families, AreListedInTheReference) {
   std::ifstream page(ZEL_SOURCE_DIR "/docs/metrics.md");
   std::vector<String> listed;
   for (String line; std::getline(page, line);) {
      if (line.starts_with("| `zel_")) {
         listed.push_back(line);
      }
   }
   std::vector<String> rows;
   for (const ZelMetrics::Family& family : ZelMetrics::families) {
      constexpr std::array types{"counter", "gauge", "info", "stateset", "histogram"};
      constexpr std::array suffixes{"_total", "", "_info", "", ""};
      const auto type = static_cast<std::size_t>(family.type);
      const auto collector = static_cast<std::size_t>(family.collector);
      rows.push_back("| `" + String(family.name.view()) + suffixes[type] + "` | " + types[type] + " | " +
                     String(family.labels) + " | " +
                     String(collector < ZelMetrics::collectorNames.size()
                                 ? ZelMetrics::collectorNames[collector]
                                 : "always") +
                     " | " + String(family.help.view()) + " |");
   }
   String whole;
   for (const String& row : rows) {
      whole += row + "\n";
   }
   EXPECT_EQ(listed, rows) << "docs/metrics.md should have these rows:\n" << whole;
}

} // namespace

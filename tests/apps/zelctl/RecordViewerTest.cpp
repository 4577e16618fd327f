// The client's views of published records.
#include "apps/zelctl/views/RecordViewer.h"

#include "apps/zelctl/views/TopView.h"
#include "kiln/Choices.h"
#include "kiln/JsonWriter.h"
#include "silo/Table.h"
#include "tests/support/ErrorText.h"
#include "tests/support/Files.h"
#include "tests/support/TemporaryFolder.h"
#include "vex/PublishedRecords.h"

#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <map>
#include <memory>
#include <nlohmann/json.hpp>
#include <regex>
#include <set>
#include <sstream>

namespace {

using Kiln::String;
namespace Tables = Silo::Interface;
using Words = std::vector<String>;
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
              Silo::TableOptions{16, interval, Silo::ClockDomain::monotonic(), {}, false}};
   }
   void publishPorts() {
      ports_.reset(new auto(table<Tables::IntfCounters>(Tables::TableName::intfCounters)));
      auto& published = *ports_;
      const double now = Silo::monotonicNow();
      Tables::IntfCounters created = counters(4000);
      created.createdTime = created.discontinuityTime = now - 118;
      created.speed = 25'000'000'000;
      created.deltas[0] = 3'000'000'000; // octets in 2 s: 12 Gb/s
      created.deltas[1] = 5'000'000;     // packets
      created.isAbsorbed[1] = 0;
      Tables::IntfCounters idle = counters(0);
      idle.deltas[0] = 0;
      idle.speed = 10'000'000'000;
      published.recordIs("Ethernet10", idle, now);
      published.recordIs("Ethernet2", counters(18446744073709551615U, 8), now - 5000);
      published.recordIs("Ethernet1", created, now);
   }
   String view(const String& command, std::size_t width = 0) {
      std::istringstream words(command);
      return ZelCtl::viewRecords({std::istream_iterator<String>(words), {}}, store_, width);
   }
   String refusal(const String& command) {
      return ZelTest::errorOf([&] { view(command); });
   }

   const ZelTest::TemporaryFolder folder_;
   const Silo::Store store_ = Silo::Store::directory(folder_.path());
   std::unique_ptr<Silo::Table<Tables::IntfCounters>> ports_; // whose writer lives until this is reset
};

constexpr const char* noAgent = "No agent is running, so nothing newer is published.\n";

TEST_F(RecordViewer, ListsInterfacesInNaturalOrderWithWhatIsKnownOfThem) {
   publishPorts();
   EXPECT_EQ(
        view("interfaces nonzero"),
        "Interface  State         Age  Speed  In use  Out use  In bit/s  Out bit/s  In octets  Out octets  "
        "In pkts  Out pkts  In errs  Out errs  In disc  Out disc\n"
        "Ethernet1     up         0 s    25G   49.6%       0%     12.0G          0       4000           0  "
        "      0         0        0         0        0         0\n"
        "Ethernet2  stale  1 h 23 min      -       -        -         -          -     18.45E           0  "
        "      0         0        0         0        0         0\n");
   // What does not fit goes as whole columns, those of zeros first.
   EXPECT_EQ(view("interfaces", 60), "Interface   State         Age  Speed  In use  Out use\n"
                                     "Ethernet1      up         0 s    25G   49.6%       0%\n"
                                     "Ethernet2   stale  1 h 23 min      -       -        -\n"
                                     "Ethernet10   idle         0 s    10G       -       0%\n"
                                     "(no room for In bit/s, Out bit/s, In octets, Out octets, In\n"
                                     "pkts, Out pkts, In errs, Out errs, In disc, Out disc:\n"
                                     "enlarge the window)\n");
   ports_.reset();
   EXPECT_TRUE(std::regex_search(
        view("interfaces"),
        std::regex("Ethernet1 +agent gone +0 s +25G +- +- +- +- +4000 +0 [^]*\nEthernet2 [^]*\n" +
                   String(noAgent))))
        << view("interfaces");
}

TEST_F(RecordViewer, KeywordsChooseWhatIsShown) {
   publishPorts();
   const std::vector<std::pair<String, std::vector<String>>> cases = {
        {"interfaces nonzero raw", {"Ethernet1 .* 5000 ", "Ethernet2 .* 999 ", "Ethernet10 .* 1000 "}},
        {"interfaces nonzero exact",
         {"Ethernet1 .* 12000000000 .* 4000 ", "Ethernet2 .* 18446744073709551615 "}},
        {"interfaces Eth1-2 errors nonzero",
         {"Ethernet1: up,", " Counter", "^$", "Ethernet2: stale,", " Counter", "in-fcs-errors +8"}},
        // An absorbed step has no rate, and nor has a stale record. The others are divided by the interval.
        {"interfaces rates nonzero", {"Ethernet1 .* 12.0G +0 +2.50M "}},
        {"interfaces errors nonzero", {"Ethernet2 +stale .* 0 +8 .* 4 +never"}},
        {"interfaces interface Ethernet2 errors nonzero",
         {"Ethernet2: stale, sampled 1 h 23 min ago, counting for an unknown time; last discontinuity: "
          "never; "
          "suspect steps: 4",
          " Counter ", "in-fcs-errors +8"}},
        {"interfaces Ethernet1 rat non",
         {"Ethernet1: up, sampled 0 s ago, counting for 118 s, at 25 Gb/s, in 49.6%, out 0%; last "
          "discontinuity: its "
          "creation; ",
          " Counter .*Total .*Per second", "in-octets +4000 +1500000000", "in-pkts +0 +2500000"}},
   };
   for (const auto& [command, lines] : cases) {
      std::istringstream shown(view(command));
      std::vector<String> seen;
      for (String line; std::getline(shown, line);) {
         if (line.rfind("Interface", 0) != 0) {
            seen.push_back(line);
         }
      }
      ASSERT_EQ(seen.size(), lines.size()) << command << view(command);
      for (std::size_t i = 0; i < lines.size(); ++i) {
         EXPECT_TRUE(std::regex_search(seen[i], std::regex(lines[i]))) << command << ": " << seen[i];
      }
   }
}

TEST_F(RecordViewer, AClearCountsForItsOwnRecordAndLeavesOutTheSuspectsBefore) {
   publishPorts();
   auto clears = table<Tables::IntfCounters>(Tables::TableName::intfClearCounters);
   Tables::IntfCounters ofEarlierRecord = counters(3000);
   ofEarlierRecord.createdTime = 1;
   clears.recordIs("Ethernet1", ofEarlierRecord, Silo::monotonicNow());
   clears.recordIs("Ethernet2", counters(5, 2), Silo::monotonicNow() - 6000);
   auto queues = table<Tables::IntfQueueCounters>(Tables::TableName::intfQueueCounters);
   auto queueClears = table<Tables::IntfQueueCounters>(Tables::TableName::intfClearQueueCounters);
   Tables::IntfQueueCounters record;
   record.present = record.reported = 1;
   for (auto* const each : {&queueClears, &queues}) {
      record.totals[0].drops += 500;
      each->recordIs("Ethernet2", record, Silo::monotonicNow());
   }
   const String shown = view("interfaces Ethernet1-2 since clear errors nonzero");
   EXPECT_TRUE(std::regex_search(shown, std::regex("Ethernet1: .*; never cleared\n"))) << shown;
   EXPECT_TRUE(std::regex_search(shown, std::regex("Ethernet2: .*; suspect steps: 3; counts since")))
        << shown;
   EXPECT_TRUE(std::regex_search(shown, std::regex("in-fcs-errors +6\n *out-queue-drops +500\n"))) << shown;
}

TEST_F(RecordViewer, JsonHoldsIntegersOnly) {
   publishPorts();
   String text = view("interfaces json rates nonzero Ethernet2 Ethernet1");
   text = std::regex_replace(text, std::regex("\\s"), "");
   text = std::regex_replace(text, std::regex("\"age-ms\":[0-9]{1,3},"), "\"age-ms\":0,");
   text = std::regex_replace(text, std::regex("\"age-ms\":500[0-9]{4},"), "\"age-ms\":5000000,");
   text = std::regex_replace(text, std::regex("-age-ms\":118[0-9]{3},"), "-age-ms\":118000,");
   EXPECT_EQ(text,
             "{\"table\":\"IntfCounters\",\"polling-interval-ms\":2000,\"writer-alive\":true,"
             "\"interfaces\":[{\"name\":\"Ethernet1\",\"state\":\"ok\",\"age-ms\":0,\"stale\":false,"
             "\"activity\":\"up\","
             "\"generation\":1,\"discontinuity-age-ms\":118000,\"created-age-ms\":118000,"
             "\"speed\":25000000000,\"in-use-per-mille\":496,\"out-use-per-mille\":0,"
             "\"queue-drops-age-ms\":null,\"suspects\":0,"
             "\"totals\":{\"in-octets\":4000},\"rates\":{\"in-octets\":1500000000,\"in-pkts\":2500000}},"
             "{\"name\":\"Ethernet2\",\"state\":\"ok\",\"age-ms\":5000000,\"stale\":true,"
             "\"activity\":\"stale\","
             "\"generation\":1,\"discontinuity-age-ms\":null,\"created-age-ms\":null,"
             "\"speed\":null,\"in-use-per-mille\":null,\"out-use-per-mille\":null,"
             "\"queue-drops-age-ms\":null,\"suspects\":4,"
             "\"totals\":{\"in-octets\":18446744073709551615,\"in-fcs-errors\":8},"
             "\"rates\":{}}],\"notes\":[]}");
   EXPECT_EQ(Kiln::JsonWriter::quotedString("a\"\\\n\x7f\xff\x01\xc3\xbc\xf0\x9f\x98\x80"),
             "\"a\\\"\\\\\\u000a\\u007f\\u00ff\\u0001\\u00fc\\ud83d\\ude00\"");
}

TEST_F(RecordViewer, ASampleTimeThatIsYetToComeIsNeitherFreshNorAnAge) {
   auto published = table<Tables::IntfCounters>(Tables::TableName::intfCounters);
   Tables::IntfCounters record = counters(4000);
   record.discontinuityTime = record.createdTime = Silo::monotonicNow() + 1000;
   published.recordIs("Ethernet1", record, Silo::monotonicNow() + 1000);
   EXPECT_TRUE(std::regex_search(view("interfaces"), std::regex("\nEthernet1 +stale +unknown  ")))
        << view("interfaces");
   EXPECT_EQ(view("interfaces Ethernet1").substr(0, 58),
             "Ethernet1: stale, sampled at an unknown time, counting for");
   const String json = view("interfaces json");
   EXPECT_NE(json.find("\"age-ms\": null,\n      \"stale\": true"), String::npos) << json;
   // Nor are times that are yet to come in a record whose sample time is good.
   published.recordIs("Ethernet1", record, Silo::monotonicNow());
   EXPECT_NE(view("interfaces Ethernet1").find("counting for an unknown time"), String::npos);
   EXPECT_NE(view("interfaces json").find("\"created-age-ms\": null"), String::npos);
}

TEST_F(RecordViewer, DamagedRecordsAreToldApartFromAbsentOnes) {
   publishPorts();
   ports_.reset();
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
             "nonzero, rates, errors, raw, exact, json, since");
   EXPECT_EQ(refusal("interfaces ra"), "'ra' is ambiguous: expected rates or raw");
   EXPECT_EQ(refusal("interfaces ethernet2 json"), "unknown interface 'ethernet2': did you mean Ethernet2?");
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

TEST_F(RecordViewer, ANameThatExistsComesBeforeWhateverElseTheWordMayMean) {
   auto published = table<Tables::L3IntfCounters>(Tables::TableName::vlanIntfCounters);
   EXPECT_EQ(view("vlans"),
             "Interface  State  Age  In octets  In pkts  Out octets  Out pkts  Discont\n  none\n"
             "An agent is running and publishes nothing here.\n");
   const std::vector<std::pair<String, std::vector<String>>> cases = {
        {"raw", {"raw"}},
        {"br-1", {"br-1"}},
        {"intf", {"intf"}},
        {"intf json", {"intf", "json"}},
        {"br-1,Vl20", {"Vlan20", "br-1"}},
        {"Vlan10-4094", {"Vlan20"}},
        {"interface json raw", {"json", "raw"}}};
   for (const char* const name : {"raw", "br-1", "json", "intf", "Vlan20"}) {
      published.recordIs(name, {}, Silo::monotonicNow());
   }
   for (const auto& [words, names] : cases) {
      std::istringstream lines(view("vlans " + words));
      std::vector<String> seen;
      for (String line; std::getline(lines, line);) {
         seen.push_back(line.substr(0, line.find(' ')));
      }
      seen.erase(seen.begin());
      EXPECT_EQ(seen, names) << words;
   }
   EXPECT_EQ(refusal("vlans nonzreo"), "unexpected 'nonzreo': did you mean nonzero?");
   EXPECT_EQ(refusal("vlans interface"),
             "interface needs an interface: expected Vlan20, br-1, intf, json or raw");
}

TEST_F(RecordViewer, CandidatesAreNamesListsAndRanges) {
   publishPorts();
   const auto offered = [&](const Words& words, const String& begun) {
      return Kiln::joined(ZelCtl::viewCandidates(words, begun, store_), " ");
   };
   EXPECT_EQ(offered({"interfaces", "json"}, "E"),
             "nonzero rates errors raw exact since Ethernet1 Ethernet2 Ethernet10");
   const String names = "Ethernet1 Ethernet2 Ethernet10";
   EXPECT_EQ(offered({"interfaces", "intf"}, ""), names) << "no keyword may follow";
   for (const auto& [begun, more] :
        std::map<String, String>{{"Ethernet1,", " Ethernet1,2 Ethernet1,10"},
                                 {"Ethernet1,E", " Ethernet1,Ethernet2 Ethernet1,Ethernet10"},
                                 {"Ethernet1,2-", " Ethernet1,2-10"},
                                 {"Eth1-", " Eth1-2 Eth1-10"},
                                 {"Ethernet10-", ""},
                                 {"Ethernet3-", ""}}) {
      EXPECT_EQ(offered({"interfaces", "intf"}, begun), names + more) << begun;
   }
}

TEST_F(RecordViewer, AMissingTableIsNamed) {
   EXPECT_NE(refusal("vlans").find(Tables::TableName::vlanIntfCounters), String::npos) << refusal("vlans");
}

// The cells of a table's lines, by the first line's headings. Columns are two blanks apart, and cells end where headings
// do.
std::vector<std::map<String, String>> rowsOf(const String& text) {
   std::istringstream lines(text);
   std::vector<std::map<String, String>> rows;
   String headings;
   std::getline(lines, headings);
   for (String line; std::getline(lines, line) && line.find("  ") != String::npos;) {
      rows.emplace_back();
      const std::regex heading("\\S+( \\S+)*");
      std::size_t begin = 0;
      for (std::sregex_iterator one(headings.begin(), headings.end(), heading), end; one != end; ++one) {
         // The first column is aligned left.
         const auto column = static_cast<std::size_t>(one->position() + one->length());
         const std::size_t last = begin == 0 ? headings.find_first_not_of(' ', column) - 2 : column;
         const String cell = begin == 0 ? line.substr(0, line.find(' ')) : line.substr(begin, last - begin);
         rows.back()[one->str()] = cell.substr(std::min(cell.find_first_not_of(' '), cell.size()));
         begin = begin == 0 ? line.find(' ') : last;
      }
   }
   return rows;
}

TEST_F(RecordViewer, TextAndJsonOfEveryViewAgree) {
   publishPorts();
   auto queueTable = table<Tables::IntfQueueCounters>(Tables::TableName::intfQueueCounters);
   auto vlanTable = table<Tables::L3IntfCounters>(Tables::TableName::vlanIntfCounters);
   auto subIntfTable = table<Tables::L3IntfCounters>(Tables::TableName::subIntfCounters);
   auto natTable = table<Tables::NatCounter>(Tables::TableName::intfNatCounters);
   const double now = Silo::monotonicNow();
   Tables::IntfQueueCounters queues;
   queues.totals[3] = {10, 1000, 183'000'000};
   queues.totals[4] = {10, 1000, 7};
   queues.deltas[3] = {2, 100, 0};
   queues.interval = interval;
   queues.present = 0b11001; // queue 0 was never read
   queues.reported = 0b11000;
   queues.createdTime = queues.discontinuityTime = now - 118;
   queueTable.recordIs("Ethernet1", queues, now);
   queueTable.recordIs("Ethernet10", queues, now - 54);
   Tables::L3IntfCounters vlan;
   vlan.totals = {1, 2, 3, 4};
   vlan.interval = interval;
   vlan.discontinuityTime = now - 200000;
   vlanTable.recordIs("Vlan20", vlan, now);
   vlan.interval = 0;
   subIntfTable.recordIs("Ethernet1.100", vlan, now);
   Tables::NatCounter nat;
   natTable.recordIs("Vlan10", nat, now);
   nat.totalPackets = 7;
   natTable.recordIs("Vlan20", nat, now);

   const std::map<String, String> members = {{"In octets", "in-octets"},
                                             {"Out octets", "out-octets"},
                                             {"In pkts", "in-pkts"},
                                             {"Out pkts", "out-pkts"},
                                             {"In errs", "in-errors"},
                                             {"FCS", "in-fcs-errors"},
                                             {"Queue drops", "out-queue-drops"},
                                             {"Packets", "packets"},
                                             {"Bytes", "bytes"},
                                             {"Drops", "drops"}};
   std::set<String> states;
   std::size_t counts = 0;
   for (const String command : {"interfaces exact", "interfaces errors exact", "queues exact", "vlans exact",
                                "subinterfaces exact", "nat exact"}) {
      const auto document = nlohmann::json::parse(view(command + " json"));
      std::map<String, nlohmann::json> interfaces;
      for (const auto& one : document["interfaces"]) {
         interfaces[one["name"]] = one;
      }
      const auto rows = rowsOf(view(command));
      ASSERT_GE(rows.size(), interfaces.size()) << command;
      for (const auto& row : rows) {
         const auto& json = interfaces.at(row.at("Interface"));
         const bool isQueue = row.contains("Queue");
         const String where = command + " of " + row.at("Interface");
         const auto& activity = isQueue ? json["queue-activity"][row.at("Queue")] : json["activity"];
         EXPECT_EQ(row.at("State"), activity.get<String>()) << where;
         states.insert(row.at("State"));
         const bool isAgeKnown = !json["age-ms"].is_null();
         EXPECT_EQ(row.at("Age"),
                   isAgeKnown ? Kiln::durationText(json["age-ms"].get<double>() / 1000) : "unknown")
              << where;
         for (const auto& [heading, member] : members) {
            if (row.contains(heading)) {
               const String name = (isQueue ? "queue." + row.at("Queue") + "." : "") + member;
               const auto& totals = json["totals"];
               const String told = !totals.contains(name)   ? "-"
                                   : totals[name].is_null() ? "never read"
                                                            : totals[name].dump();
               EXPECT_EQ(row.at(heading), told) << where << ": " << name;
               ++counts;
            }
         }
      }
      EXPECT_EQ(document["notes"].empty(), command != "interfaces errors exact") << command;
      for (const auto& note : document["notes"]) {
         EXPECT_NE(view(command).find(note.get<String>()), String::npos) << note;
      }
   }
   EXPECT_EQ(counts, 15U + 9 + 18 + 4 + 4 + 4);
   const auto readings = nlohmann::json::parse(view("interfaces Ethernet1 raw json"))["interfaces"][0];
   EXPECT_EQ(readings["not-supported"], nlohmann::json{"out-queue-drops"});
   EXPECT_TRUE(readings["readings"]["out-queue-drops"].is_null());
   EXPECT_EQ(states, (std::set<String>{"up", "idle", "no rate", "stale", "never read", "ok"}));
   EXPECT_TRUE(std::regex_search(view("interfaces errors"), std::regex("Ethernet1 .* 183.0M +0 +creation\n")))
        << view("interfaces errors");
   EXPECT_NE(view("interfaces errors").find("\nQueue drops of Ethernet10: as of 54 s ago\n"), String::npos);
   EXPECT_TRUE(std::regex_search(view("vlans"), std::regex("Vlan20 .* 2 d 7 h ago\n"))) << view("vlans");
}

TEST_F(RecordViewer, TopRanksPortsAndQueuesAlikeInTextAndJson) {
   publishPorts();
   auto queueTable = table<Tables::IntfQueueCounters>(Tables::TableName::intfQueueCounters);
   Tables::IntfQueueCounters queues;
   queues.totals[1] = {10, 1000, 500};
   queues.totals[2] = {10, 1000, 7};
   queues.deltas[1].drops = 1;
   queues.deltas[2].drops = 4;
   queues.interval = interval;
   queues.present = queues.reported = 0b110;
   queueTable.recordIs("Ethernet10", queues, Silo::monotonicNow());
   queues.deltas = {};
   queueTable.recordIs("Ethernet1", queues, Silo::monotonicNow());
   const auto top = [&](const Words& words) { return ZelCtl::viewTop(words, store_, 0); };
   EXPECT_EQ(top({"top", "by", "dro"}),
             "Ports, by drops\n"
             "Interface   State  In use  Out use  In bit/s  Out bit/s  Pkts/s  Drops/s  Drops  Errs/s  Errs\n"
             "Ethernet10   idle       -       0%         0          0       -      2.5    507       0     0\n"
             "Ethernet1      up   49.6%       0%     12.0G          0   2.50M        0    507       0     0\n"
             "\n"
             "Queues, by drops\n"
             "Interface   Queue  State  Out bit/s  Pkts/s  Drops/s  Drops\n"
             "Ethernet10      2   idle          0       0      2.0      7\n"
             "Ethernet10      1   idle          0       0      0.5    500\n"
             "Ethernet1       1   idle          0       0        0    500\n"
             "Ethernet1       2   idle          0       0        0      7\n");
   const auto document = nlohmann::json::parse(top({"top", "json", "by", "drops"}));
   String ranks;
   for (const auto& ranking : document["rankings"]) {
      for (const auto& row : ranking["rows"]) {
         ranks += row["name"].get<String>() + row.value("queue", "") + " " + row["activity"].get<String>() +
                  " " + row["drops-per-second"].dump() + " " + row["drops"].dump() + " " +
                  row["packets-per-second"].dump() + "\n";
      }
   }
   EXPECT_EQ(ranks, "Ethernet10 idle 3 507 null\nEthernet1 up 0 507 2500000\n"
                    "Ethernet102 idle 2 7 0\nEthernet101 idle 1 500 0\nEthernet11 idle 0 500 0\n"
                    "Ethernet12 idle 0 7 0\n");
   queues.absorbed = 0b010;
   queueTable.recordIs("Ethernet1", queues, Silo::monotonicNow());
   EXPECT_TRUE(std::regex_search(top({"top", "by", "drops"}), std::regex("Ethernet1 .* - +507 ")))
        << "of one queue";
   ports_->recordIs("Ethernet3", ports_->sample("Ethernet1").record, Silo::monotonicNow());
   const String alike = top({"top", "by", "in"});
   EXPECT_LT(alike.find("Ethernet1 "), alike.find("Ethernet3 ")) << alike;
   ports_.reset();
   EXPECT_EQ(top({"top", "by", "errors"}), "Ports, by errors\n  none\n" + String(noAgent));
   for (const auto& [words, error] : std::vector<std::pair<Words, String>>{
             {{"top", "bye"}, "unexpected 'bye': did you mean by?"},
             {{"top", "by"}, "by needs a column: expected use, in, out, packets, drops or errors"},
             {{"top", "by", "speed"},
              "unexpected 'speed': expected use, in, out, packets, drops or errors"}}) {
      EXPECT_EQ(ZelTest::errorOf([&, one = words] { top(one); }), error);
   }
}

} // namespace

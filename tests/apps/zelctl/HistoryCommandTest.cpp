// Plots and samples of a history: one in simulated time, so that its text is always the same.
#include "apps/zelctl/history/HistoryCommand.h"

#include "silo/HistoryTable.h"
#include "tests/support/ErrorText.h"
#include "tests/support/Files.h"
#include "tests/support/TemporaryFolder.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

namespace {

using Kiln::String;
using Silo::Interface::IntfHistory;
using Silo::Interface::IntfQueueHistory;
using Words = std::vector<String>;
using ZelCtl::Charset;

constexpr double burst = 240;
constexpr double gapBegin = 480;
constexpr double gapEnd = 570;
constexpr double upset = 702;
constexpr double end = 900;

class HistoryPlots : public testing::Test {
 protected:
   HistoryPlots() {
      Silo::HistoryTable ports = table(Silo::Interface::TableName::intfHistory, IntfHistory::layout, 2);
      std::vector<U64> totals(IntfHistory::fieldNames.size());
      for (double time = 2; time <= end; time += 2) {
         totals[IntfHistory::inOctets] += time == burst ? 25'000'000 : 250'000; // 100 and 1 Mbit/s
         totals[IntfHistory::outQueueDrops] += time == burst ? 100 : 0;
         if (time <= gapBegin || time >= gapEnd) {
            ports.write("Ethernet1", time, {time >= upset ? upset : 0, 0}, totals);
         }
      }
      Silo::HistoryTable queues =
           table(Silo::Interface::TableName::intfQueueHistory, IntfQueueHistory::layout, 20);
      std::vector<U64> queue(IntfQueueHistory::queuesPerRing * IntfQueueHistory::fieldNames.size());
      queue[IntfQueueHistory::field(3, 2)] = ~U64{0} - 5;
      // That the record is new is noticed after the first reading, and marks that one only.
      queues.write("Ethernet1", 20, {0, 21}, queue);
      queue[IntfQueueHistory::field(3, 2)] += 10; // modulo 2^64
      queues.write("Ethernet1", 40, {0, 21}, queue);
   }

   Silo::HistoryTable table(const char* name, const Silo::RecordLayout& layout, double interval) {
      return {store_, name, layout,
              Silo::HistoryOptions{.depth = 451,
                                   .maxRings = 4,
                                   .pollingInterval = interval,
                                   .spacing = interval / 2,
                                   .clockDomain = Silo::ClockDomain::simulatedTime(),
                                   .onCorruption = {}}};
   }

   String show(const Words& words, std::size_t width = 80, Charset charset = Charset::ascii) {
      Words line{"history"};
      line.insert(line.end(), words.begin(), words.end());
      return viewHistory(line, store_, width, charset);
   }
   String error(const Words& words) {
      return ZelTest::errorOf([&] { show(words); });
   }

   ZelTest::TemporaryFolder folder_;
   Silo::Store store_ = Silo::Store::directory(folder_.path());
};

// A burst of one sample, a gap, and a discontinuity; a mean hides the burst's height, but nothing else does.
TEST_F(HistoryPlots, ShowsABurstAGapAndADiscontinuityInAnyWidthAndCharset) {
   String all;
   for (const Charset charset : {Charset::utf8, Charset::ascii}) {
      for (const std::size_t width : {80U, 200U}) {
         all += show({"Eth1", "in-octets", "out-queue-drops"}, width, charset);
      }
      all += show({"Eth1", "in-octets"}, 80, charset);
   }
   EXPECT_EQ(all, ZelTest::bytesOf(ZEL_HISTORY_PLOTS));
}

TEST_F(HistoryPlots, CountsTotalsWithinTheSpan) {
   const String shown = show({"Ethernet1", "in-octets", "queue.3.drops", "totals"});
   EXPECT_NE(shown.find(" 137.0M  137.2M\n"), String::npos) << shown;
   EXPECT_NE(shown.find("      10       4\n"), String::npos) << shown;
}

TEST_F(HistoryPlots, GivesSamplesAsTheyAre) {
   const auto json = nlohmann::json::parse(show({"Ethernet1", "in-octets", "queue.3.drops", "json"}));
   EXPECT_EQ(json["writer-alive"], false);
   const auto& series = json["series"];
   ASSERT_EQ(series.size(), 2);
   EXPECT_EQ(series[0]["samples"].size(), 406);
   EXPECT_EQ(series[0]["samples"][1],
             nlohmann::json::parse(R"({"unix-us": 4000000, "clock-us": 4000000, "discontinuity": false,
                                       "begun": false, "queues-unread": false,
                                       "totals": {"in-octets": 500000}})"));
   EXPECT_EQ(series[0]["gaps"].dump(), R"([{"from-clock-us":480000000,"from-unix-us":480000000,)"
                                       R"("to-clock-us":570000000,"to-unix-us":570000000}])");
   EXPECT_EQ(series[1]["samples"][0]["totals"]["queue.3.drops"], ~U64{0} - 5);
   EXPECT_EQ(series[1]["samples"][0]["begun"], true);
   EXPECT_EQ(show({"Ethernet1", "in-octets", "queue.3.drops", "from", "00:11:41", "to", "00:11:42", "csv"}),
             "interface,unix-time,clock-time,discontinuity,begun,after-gap,in-octets,queue.3.drops\n"
             "Ethernet1,702.000000,702.000000,1,0,0,112500000,\n");
}

TEST_F(HistoryPlots, SaysWhatThereIsWhenAskedForSomethingElse) {
   const String there = "there are some from 00:00:02 to 00:15:00 (14 min 58 s): try: ";
   EXPECT_EQ(error({"Ethernet1", "last", "2h"}), "that is beyond the history: " + there + "last 14m");
   EXPECT_EQ(error({"Ethernet1", "from", "00:20", "to", "00:30"}),
             "00:20:00 is yet to come: now it is 1970-01-01 00:15:00");
   EXPECT_EQ(error({"Ethernet1", "from", "23:50", "to", "00:00:01"}),
             "no samples then: " + there + "from 00:00:02 to 00:15:00"); // of the evening before
   EXPECT_EQ(error({"Ethernet1", "last", "5m", "last", "6m"}), "last is given twice: leave out one of them");
   EXPECT_EQ(error({"Ethernet1", "json", "csv"}), "json and csv are two formats: leave out one of them");
   EXPECT_EQ(error({"Ethernet1", "last", "5"}), "invalid duration '5': expected 5s or 5m");
   EXPECT_EQ(error({"Ethernet1", "from", "00:10", "to", "00:05"}),
             "from 1970-01-01 00:10:00 is after to 1970-01-01 00:05:00: now it is 1970-01-01 00:15:00");
   EXPECT_EQ(error({"Ethernet1", "last", "soon"}),
             "invalid duration 'soon': expected one as 90s, 5m or 1h30m");
   EXPECT_EQ(error({"Ethernet1", "in"}),
             "'in' is ambiguous: expected in-octets, in-pkts, in-errors or in-discards");
   EXPECT_EQ(error({"Ethernet1", "queue.8"}), "no counter 'queue.8': expected queue.N, queue.N.packets, "
                                              "queue.N.bytes or queue.N.drops, with N from 0 to 7");
   EXPECT_EQ(error({"in-octets"}), "history needs an interface: expected Ethernet1");
   EXPECT_EQ(error({"Ethernet1", "in-octts"}), "unexpected 'in-octts': did you mean in-octets?");
   EXPECT_NE(error({"Ethernet2"}).find("expected Ethernet1; counters are in-octets"), String::npos);
}

// Queue drops that are as old as an earlier sample's are not those of this one's time, and everything else is.
TEST_F(HistoryPlots, LeavesOutQueueDropsThatWereNotRead) {
   std::vector<U64> totals(IntfHistory::fieldNames.size(), 200'000'000);
   for (const double time : {902., 904., 906.}) {
      totals[IntfHistory::outQueueDrops] += time == 906 ? 50 : 0;
      table(Silo::Interface::TableName::intfHistory, IntfHistory::layout, 2)
           .write("Ethernet1", time, {0, 0, time == 904 ? Silo::SampleFlag::queuesUnread : 0}, totals);
   }
   const String csv = show({"Ethernet1", "in-octets", "out-queue-drops", "from", "00:15:02", "csv"});
   EXPECT_NE(csv.find(",200000000,200000000\n"), String::npos) << csv;
   EXPECT_NE(csv.find(",200000000,\n"), String::npos) << csv;
   const String plot = show({"Ethernet1", "out-queue-drops", "from", "00:15:02"});
   EXPECT_NE(plot.find("min -, mean -"), String::npos) << plot; // nobody knows when the 50 were
   EXPECT_NE(plot.find("out-queue-drops is unknown, as the queues were not read: 00:15:04\n"), String::npos)
        << plot;
   ZelCtl::PastTable past(store_, ZelCtl::PastTable::Kind::ports);
   const ZelCtl::PastSamples samples = past.samples("Ethernet1");
   EXPECT_EQ(samples.since(902, IntfHistory::outQueueDrops), 50);
   EXPECT_EQ(samples.since(904, IntfHistory::outQueueDrops), std::nullopt);
   EXPECT_EQ(samples.since(904, IntfHistory::inOctets), 0);
}

TEST_F(HistoryPlots, TakesDifferencesOverTheBeginningOfARecord) {
   ZelCtl::PastSamples past;
   past.interval = 2;
   past.samples = {{1, 0, 2, {100}}, {2, 0, 4, {150}}, {3, Silo::SampleFlag::begun, 6, {7}}, {4, 0, 8, {9}}};
   EXPECT_EQ(past.since(2, 0), 59);
   EXPECT_EQ(past.since(5, 0), 9);
   EXPECT_EQ(past.since(1, 0), std::nullopt); // before the first sample
   past.samples[3].values = {6};              // went back
   EXPECT_EQ(past.since(2, 0), std::nullopt);
}

} // namespace

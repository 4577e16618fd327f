// Watching: which commands, the changes between rounds, and the layout.
#include "apps/zelctl/commands/WatchCommand.h"
#include "apps/zelctl/views/CountersDocument.h"
#include "apps/zelctl/watch/WatchText.h"

#include <cmath>
#include <gtest/gtest.h>
#include <iterator>
#include <sstream>

namespace {

using Kiln::String;
using Kind = ZelCtl::ShownColumn::Kind;
using ZelCtl::ShownTable;

std::vector<String> wordsOf(const String& line) {
   std::istringstream words(line);
   return {std::istream_iterator<String>(words), {}};
}

TEST(Watch, TakesShowsAndNothingElse) {
   const String shows =
        "counters, interfaces, queues, vlans, subinterfaces, nat, drops, classes, pipeline, mau-drops, "
        "traffic-manager, health or top";
   const String example = ": expected a show to watch, as in 'watch counters show drop nonzero'";
   const std::vector<std::pair<String, String>> cases = {
        {"watch counters show", "2 counters show"},
        {"watch 0.5 counters chip clear sh drop nonz", "0.5 counters chip clear sh drop nonz"},
        {"watch 3600 int Ethernet1 nonzero", "3600 interfaces Ethernet1 nonzero"},
        {"watch 0.1 nat", "0.1 nat"},
        {"watch top by drops", "2 top by drops"},
        {"watch", "watch needs a show: expected " + shows},
        {"watch 2", "watch needs a show: expected " + shows},
        {"watch 0.09 nat", "invalid watch interval '0.09': expected 0.1 to 3600 seconds"},
        {"watch 3601 nat", "invalid watch interval '3601': expected 0.1 to 3600 seconds"},
        {"watch 2s nat", "invalid watch interval '2s': expected 0.1 to 3600 seconds"},
        {"watch -1 nat", "invalid watch interval '-1': expected 0.1 to 3600 seconds"},
        {"watch quit", "cannot watch 'quit': expected seconds or " + shows},
        {"watch 1 watch nat", "cannot watch 'watch': expected " + shows},
        {"watch counters clear mac",
         "watch repeats shows only, and 'counters clear mac' clears: expected counters show ..."},
        {"watch counters chip Zel0 cl",
         "watch repeats shows only, and 'counters chip Zel0 cl' clears: expected counters show ..."},
        {"watch counters c Zel0 show",
         "watch repeats shows only, and 'counters c Zel0 show' clears: expected counters show ..."},
        {"watch counters", "the command to watch is incomplete: expected show after 'counters'"},
        {"watch counters chip Zel0",
         "the command to watch is incomplete: expected show after 'counters chip Zel0'"},
        {"watch counters sweep", "unexpected 'sweep'" + example},
        {"watch counters show mac js", "watch shows tables: leave out 'js'"},
   };
   for (const auto& [line, expected] : cases) {
      std::ostringstream result;
      try {
         const ZelCtl::WatchRequest request = ZelCtl::parseWatch(wordsOf(line));
         result << request.interval;
         for (const String& word : request.words) {
            result << ' ' << word;
         }
      } catch (const std::exception& error) {
         result << error.what();
      }
      EXPECT_EQ(result.str(), expected) << line;
   }
}

// Each row is a name and two counts; "-" is an unknown count.
ShownTable table(const std::vector<String>& rows, double sampled, const String& title = "T") {
   ShownTable shown{title, {{"Name", Kind::key}, {"In", Kind::counter}, {"Out", Kind::counter}}, {}};
   for (const String& row : rows) {
      shown.rows.emplace_back();
      shown.rows.back().sampled = {sampled, sampled};
      for (const String& word : wordsOf(row)) {
         const bool isCount = !shown.rows.back().cells.empty() && word != "-";
         shown.rows.back().cells.push_back({word, isCount ? std::optional(std::stoull(word)) : std::nullopt});
      }
   }
   return shown;
}

String drawn(const std::vector<ZelCtl::WatchedTable>& tables, const ZelCtl::WatchRoom& room = {}) {
   String text;
   for (const String& line : layOut(tables, room)) {
      text += line + "\n";
   }
   return text;
}

TEST(Watch, MarksWhatChangedAndRatesItByTheTimeBetweenSamples) {
   ZelCtl::WatchChanges changes;
   EXPECT_EQ(drawn(changes.compare({table({"a 1 0", "b 5 100"}, 10)})), "T\n"
                                                                        "  Name  In  /s  Out  /s\n"
                                                                        "  a      1   -    0   -\n"
                                                                        "  b      5   -  100   -\n");
   EXPECT_EQ(drawn(changes.compare({table({"a 1 3000000", "c 7 -", "b 6 40"}, 14)})),
             "T\n"
             "  Name  In   /s      Out    /s\n"
             "* a      1    0  3000000  750k\n"
             "+ c      7    -        -     -\n"
             "* b      6  0.2       40     -\n"); // 0.25; and a counter that began anew has no rate
   EXPECT_EQ(drawn(changes.compare({table({"a 1 3000000", "b 6 140"}, 15)})),
             "T\n"
             "  Name  In  /s      Out   /s\n"
             "  a      1   0  3000000    0\n"
             "* b      6   0      140  100\n"
             "- c      7   -        -    -\n");
   EXPECT_EQ(drawn(changes.compare({})).substr(0, 2), "T\n") << "rows of a table that is gone";
   EXPECT_EQ(drawn(changes.compare({})), "");
}

TEST(Watch, AnswersOfWhichNobodyCanTellWhetherTheyAreNewerLeaveTheRateToTheNext) {
   ZelCtl::WatchChanges changes;
   changes.compare({table({"a 100 0"}, 10)});
   ShownTable unsure = table({"a 300 0"}, 10);
   unsure.rows[0].sampled = {9.9, 10.1};
   changes.compare({unsure});
   EXPECT_EQ(changes.compare({table({"a 500 0"}, 12)})[0].rows[0].cells[1].rate, "200");
}

// An agent's counter rises by 27000 a second and is sampled every 2 seconds, the first time at 0.3. Answers take up to
// 40 ms; rounds come at any interval, and once the agent hangs.
TEST(Watch, RatesAreTrueAtAnyInterval) {
   for (const double interval : {0.1, 0.5, 1.0, 2.0, 3.7}) {
      ZelCtl::WatchChanges changes;
      std::size_t rated = 0;
      for (int round = 0; round < 80; ++round) {
         const double hang = round < 40 ? 0 : 11.3;
         const double asked = 1 + interval * round + hang;
         const double told = asked + 0.004 * (round * 7 % 10);
         const double sampled = 0.3 + 2 * std::floor((told - 0.3) / 2);
         const String answer =
              R"({"chips": [{"chip": "Zel0", "tables": [{"title": "Drops, chip Zel0", "cleared-by": "root", "cleared-age-ms": )" +
              std::to_string(round * 1000) + R"(, "counters": ["In"], "rows": [{"Name": "a", "In": )" +
              std::to_string(std::llround(27000 * sampled)) + R"(}], "notes": [], "age-ms": )" +
              std::to_string(std::llround((told - sampled) * 1000)) + R"(, "status": null}], "notes": []}]})";
         const auto tables = changes.compare(ZelCtl::readCountersDocument(answer, asked, asked + 0.04));
         ASSERT_EQ(tables.size(), 1U) << "the same table whatever the age in its title";
         const String& rate = tables[0].rows[0].cells[1].rate;
         if (rate != "-") {
            ++rated;
            EXPECT_NEAR(std::stod(rate), 27000, 27000 * 0.03)
                 << "round " << round << " of " << interval << " s";
         }
      }
      EXPECT_GE(rated, 79 - std::ceil(2.1 / interval));
   }
}

TEST(Watch, WhatIsNotReadAnyMoreHasNoRate) {
   ZelCtl::WatchChanges changes;
   const auto rate = [&](double sampled, const String& status) {
      const String answer =
           R"({"chips": [{"chip": "Zel0", "tables": [{"title": "T", "counters": ["In"], "rows": [
         {"Name": "a", "In": 5}], "notes": [], "age-ms": 0, "status": )" +
           status + R"(}], "notes": ["Zel0: as of 54 s ago: HW access fails"]}]})";
      const auto tables = changes.compare(ZelCtl::readCountersDocument(answer, sampled, sampled));
      EXPECT_EQ(drawn({tables.back()}), "Zel0: as of 54 s ago: HW access fails\n");
      return tables[0].rows[0].cells[1].rate;
   };
   rate(1, "null");
   EXPECT_EQ(rate(3, "null"), "0");
   EXPECT_EQ(rate(5, R"("HW access fails")"), "-");
}

TEST(Watch, RowsAndTablesOfTheSameNameStayApart) {
   ZelCtl::WatchChanges changes;
   changes.compare({table({"a 1 0", "a 2 0"}, 1), table({"a 3 0"}, 1)});
   const auto second = changes.compare({table({"a 1 0", "a 4 0"}, 2), table({"a 3 0"}, 2)});
   EXPECT_EQ(drawn(second), "T\n  Name  In   /s  Out  /s\n"
                            "  a      1    0    0   0\n"
                            "* a      4  2.0    0   0\n"
                            "T\n  Name  In  /s  Out  /s\n"
                            "  a      3   0    0   0\n");
}

TEST(Watch, LeavesOutWhatSaysLeastToFitTheScreen) {
   ZelCtl::WatchChanges changes;
   const auto rows = [](int last, double sampled) {
      return table({"a 1 0", "b 2 0", "c 3 0", "d " + std::to_string(last) + " 0"}, sampled);
   };
   changes.compare({rows(4, 1), table({"e 0 0"}, 1, "U")});
   const auto tables = changes.compare({rows(6, 2), table({"e 0 0"}, 2, "U")});
   // Rows that never changed go, last ones first, and a table of only such rows as a whole; then columns of zeros.
   EXPECT_EQ(drawn(tables, {80, 5, false}), "T\n"
                                            "  Name  In   /s  Out  /s\n"
                                            "  a      1    0    0   0\n"
                                            "* d      6  2.0    0   0\n"
                                            "(3 rows do not fit: enlarge the window or ask for less)\n");
   EXPECT_EQ(drawn({tables[0]}, {17, 5, false}), "T\n"
                                                 "  Name  In   /s\n"
                                                 "  a      1    0\n"
                                                 "* d      6  2.0\n"
                                                 "(2 rows and 1 col\n");
   EXPECT_EQ(drawn({tables[0]}, {11, 9, false}).substr(0, 13), "T\n  Name  In\n");
   EXPECT_EQ(drawn({tables[0]}, {80, 0, true}).substr(27), // only what changed stands out
             "  a      1    0    0   0\n  b      2    0    0   0\n  c      3    0    0   0\n"
             "\x1b[1m*\x1b[0m d     \x1b[1m 6\x1b[0m  \x1b[1m2.0\x1b[0m    0   0\n")
        << drawn({tables[0]}, {80, 0, true});
}

TEST(Watch, ARowThatEndsEarlyEndsInText) {
   ZelCtl::WatchChanges changes;
   ShownTable shown = table({"a 1 0"}, 1);
   shown.rows.push_back({{{"b"}, {"corrupt: checksum mismatch"}}, {}});
   EXPECT_EQ(drawn(changes.compare({shown})), "T\n"
                                              "  Name  In  /s  Out  /s\n"
                                              "  a      1   -    0   -\n"
                                              "  b     corrupt: checksum mismatch\n");
}

} // namespace

// Filters behind a command: how a line is split, and what they leave of a text.
#include "apps/zelctl/commands/Filters.h"

#include "tests/support/ErrorText.h"

#include <gtest/gtest.h>

namespace {

using Kiln::String;

TEST(Filters, LeaveTheLinesThatAreAskedFor) {
   const String text = "Ethernet1  same port 5\nEthernet2  bad FCS\nZel|0 same  port\nlast";
   const std::vector<std::pair<String, String>> cases = {
        {"show", "show: " + text},
        {" show a|b ", "show a|b: " + text},
        {"show | include same port", "show: Ethernet1  same port 5\n"},
        {"show |inc Zel|0", "show: Zel|0 same  port\n"},
        {"show | exclude Ethernet", "show: Zel|0 same  port\nlast"},
        {"show | e Ethernet1 | i same | co", "show: 1 line\n"},
        {"show\t|\tcount", "show: 3 lines\n"},
        {"show | include none", "show: "},
        {"show | include none | count", "show: 0 lines\n"},
        {"show |", "nothing after '|': expected include TEXT, exclude TEXT or count"},
        {"show | | count", "nothing after '|': expected include TEXT, exclude TEXT or count"},
        {"show | grep x", "unknown 'grep' after '|': expected include TEXT, exclude TEXT or count"},
        {"show | includes x", "unknown 'includes' after '|': expected include TEXT, exclude TEXT or count"},
        {"show | include ", "include needs a text: expected | include TEXT"},
        {"show | count lines", "unexpected 'lines' after count: expected nothing, or another |"},
   };
   for (const auto& [line, expected] : cases) {
      String result;
      const String error = ZelTest::errorOf([&, &typed = line] {
         const ZelCtl::FilteredLine split = ZelCtl::splitFilters(typed);
         result = split.command + ": " + filtered(split.filters, text).text;
      });
      EXPECT_EQ(error.empty() ? result : error, expected) << line;
   }
}

TEST(Filters, NeverTakeAwayHowOldTheCountsAre) {
   const String notes = "Zel0, Ethernet3: as of 54 s ago: HW access fails\nZel1: never read: no answer\n"
                        "No agent is running, so nothing newer is published.\n";
   const String json = "{\"chip\":\"Zel0\",\"notes\":[\"Zel0: as of 54 s ago: no answer\"]}\n";
   const String text = "Ethernet3 5\n" + json + notes;
   for (const auto& [typed, left] : std::vector<std::pair<String, String>>{
             {"| count", "2 lines\n"}, {"| exclude Zel", "Ethernet3 5\n"}, {"| include Zel", json}}) {
      const auto result = filtered(ZelCtl::splitFilters(typed).filters, text);
      EXPECT_EQ(result.text, left) << typed;
      EXPECT_EQ(result.notes, notes) << typed;
   }
   EXPECT_EQ(ZelCtl::filtered({}, text).text, text);
}

} // namespace

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
         result = split.command + ": " + filtered(split.filters, text);
      });
      EXPECT_EQ(error.empty() ? result : error, expected) << line;
   }
}

} // namespace

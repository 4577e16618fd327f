// The logs on the command channel: text and JSON, and what stays.
#include "agent/LogCommand.h"

#include "agent/CommandSpool.h"
#include "kiln/RingLog.h"
#include "tests/support/SimulatedTime.h"

#include <array>
#include <cstdlib>
#include <gtest/gtest.h>

namespace {

using Kiln::String;

constexpr Kiln::LogMessage full{"TEST_FULL", Kiln::Severity::warning, "Table %s is full", "Nothing \"fits\".",
                                "Make room."};

struct Asked {
   String text;
   String error;
};
Asked ask(Agent::LogCommand::Log log, const std::vector<String>& words) {
   const Agent::CommandSpool spool;
   const String error = Agent::LogCommand("log", log).command(words, spool.fd()).error;
   String text(spool.size(), '\0');
   spool.read(0, text.data(), text.size());
   return {text, error};
}

TEST(LogCommand, ShowsWhatIsKeptAndKeepsIt) {
   setenv("TZ", "UTC", 1);
   const ZelTest::SimulatedTime time;
   Kiln::OperatorLog::instance().newEntries();
   Kiln::RingLog::instance().lineDelAll();
   using enum Agent::LogCommand::Log;
   EXPECT_EQ(ask(operatorLog, {}).text, "The log is empty since the agent came up\n");
   EXPECT_EQ(ask(ringLog, {"json"}).text, "{\"log\":[]}\n");
   ZelTest::SimulatedTime::advance(3661.25);
   Kiln::OperatorLog::instance().log(full, std::array<String, 1>{"a\x1b[2J"});
   KILN_RINGLOG("first");
   ZelTest::SimulatedTime::advance(100);
   KILN_RINGLOG("second");
   const String message = "1970-01-01 01:01:01.250 TEST_FULL (warning): Table a?[2J is full\n";
   EXPECT_EQ(ask(operatorLog, {}).text, message);
   EXPECT_EQ(ask(operatorLog, {}).text, message) << "still there";
   EXPECT_EQ(ask(operatorLog, {"j"}).text,
             "{\"log\":[\n{\"time\":\"1970-01-01 01:01:01.250\",\"age-ms\":100000,\"id\":\"TEST_FULL\","
             "\"severity\":\"warning\",\"text\":\"Table a\\u001b[2J is full\","
             "\"explanation\":\"Nothing \\\"fits\\\".\",\"recommended-action\":\"Make room.\"}]}\n");
   EXPECT_EQ(ask(ringLog, {}).text, "1970-01-01 01:01:01.250 first\n1970-01-01 01:02:41.250 second\n");
   EXPECT_EQ(ask(ringLog, {"jsonx"}).error, "unexpected 'jsonx': expected json after the name of the log");
   EXPECT_EQ(ask(ringLog, {"json", "x"}).error, "unexpected 'x': expected nothing after the name of the log");
}

} // namespace

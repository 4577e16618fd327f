// Diagnostics: assertions, trace, ring log, operator log, and text output to an operator.
#include "kiln/Assert.h"
#include "kiln/LogOutput.h"
#include "kiln/OperatorLog.h"
#include "kiln/RingLog.h"
#include "kiln/TextOutput.h"
#include "kiln/Time.h"
#include "kiln/Trace.h"
#include "tests/support/Pipe.h"

#include <array>
#include <csignal>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>

namespace {

using Kiln::String;
using Kiln::TextOutput;

// Stands for a macro of the chip maker's. An assertion must quote its name, not what it expands to.
#define CHIP_LIMIT 89

void checkLimit(unsigned ctrId) {
   KILN_ASSERT(ctrId < CHIP_LIMIT);
   KILN_ASSERT_TEXT(ctrId != 5, "pps == 0");
   KILN_ASSERT_MESSAGE(ctrId != 6, "status == 0", "Failed to map");
}

TEST(Assert, QuotesExpressionFileAndFunctionAndAborts) {
   checkLimit(88);
   EXPECT_EXIT(checkLimit(89), testing::KilledBySignal(SIGABRT),
               "assertion \"ctrId < CHIP_LIMIT\" failed in DiagnosticsTest, checkLimit\\(\\), line");
   EXPECT_DEATH(checkLimit(5), "assertion \"pps == 0\" failed in DiagnosticsTest, checkLimit\\(\\)");
   EXPECT_DEATH(checkLimit(6), "\"status == 0\" failed .*: Failed to map");
}

Kiln::TraceHandle traceHandle("DiagnosticsTest");

TEST(Trace, ALevelThatIsOffEvaluatesNothing) {
   String error;
   int evaluated = 0;
   ASSERT_TRUE(Kiln::traceSettingIs("DiagnosticsTest/0-2,8", &error));
   for (unsigned level = 0; level <= 9; ++level) {
      testing::internal::CaptureStderr();
      KILN_TRACE(level, "count " << ++evaluated);
      const String text = testing::internal::GetCapturedStderr();
      const bool on = level <= 2 || level == 8;
      EXPECT_EQ(text.find("DiagnosticsTest/" + std::to_string(level) + " count ") != String::npos, on)
           << text;
   }
   EXPECT_EQ(evaluated, 4);
   ASSERT_TRUE(Kiln::traceSettingIs("OtherFile/3", &error));
   EXPECT_FALSE(traceHandle.isOn(3));
   ASSERT_TRUE(Kiln::traceSettingIs("*/9", &error));
   EXPECT_TRUE(traceHandle.isOn(9) && !traceHandle.isOn(0));
   static const Kiln::TraceHandle late("OtherFile"); // the newest setting that matches applies
   EXPECT_TRUE(late.isOn(9) && !late.isOn(3));
   traceHandle.levelsIs(0);
}

TEST(Trace, AMalformedSettingIsRefusedWithTheFormExpected) {
   for (const char* text : {"", "/", "/1", "X", "X/", "X/10", "X/1-", "X/-1", "X/3-1", "X/1,", "X/,1", "X/1 ",
                            "X/a", "X/1-2-3", "X/4294967297", "X/+1"}) {
      String error;
      EXPECT_FALSE(Kiln::traceSettingIs(text, &error)) << text;
      EXPECT_EQ(error,
                "trace setting '" + String(text) + "' is not NAME/LEVELS, such as ZelCounters/0-4 or */8");
   }
}

TEST(RingLog, KeepsTheNewestLinesUpToItsBoundFromAnyThread) {
   auto& log = Kiln::RingLog::instance();
   log.lineDelAll();
   constexpr int perThread = 3000;
   const auto write = [](const char* who) {
      for (int i = 0; i < perThread; ++i) {
         KILN_RINGLOG(who << " " << i);
      }
   };
   std::thread other(write, "other");
   write("mine");
   other.join();
   KILN_RINGLOG("the last");
   const std::vector<String> lines = log.lines();
   ASSERT_EQ(lines.size(), Kiln::RingLog::lineLimit);
   EXPECT_THAT(lines.back(), testing::EndsWith(" the last"));
   EXPECT_THAT(lines.front(), testing::Not(testing::EndsWith(" 0")));
}

constexpr Kiln::LogMessage full{"TEST_RESOURCE_FULL", Kiln::Severity::warning,
                                "Table %s of chip %s is full (%d of 100%)", "Nothing fits.", "Make room."};

TEST(OperatorLog, FillsArgumentsInOrderAndNeverExpandsThemAgain) {
   auto& log = Kiln::OperatorLog::instance();
   log.newEntries();
   std::vector<String> seen;
   log.sinkIs([&](const Kiln::OperatorLog::Entry& entry) {
      seen.push_back(String(entry.message->id) + " " + Kiln::severityText(entry.message->severity));
      EXPECT_FALSE(log.newEntries().empty()); // the sink may read the log
   });
   log.log(full, std::array<String, 3>{"a%s", "Zel0", "7"});
   log.sinkIs({});
   log.log(full, std::array<String, 1>{"b"});
   EXPECT_THAT(seen, testing::ElementsAre("TEST_RESOURCE_FULL warning"));
   const auto entries = log.newEntries();
   ASSERT_EQ(entries.size(), 1U);
   EXPECT_EQ(entries[0].text, "Table b of chip %s is full (%d of 100%)");
   log.log(full, std::array<String, 3>{"a%s", "Zel0", "7"});
   EXPECT_EQ(log.newEntries().at(0).text, "Table a%s of chip Zel0 is full (7 of 100%)");
   EXPECT_TRUE(log.newEntries().empty());
}

TEST(LogOutput, NeverWaitsForAReaderAndSaysHowManyLinesItDropped) {
   const ZelTest::Pipe pipe;
   const int flags = fcntl(pipe.writer.fd(), F_GETFL);
   Kiln::LogOutput log(pipe.writer.fd());
   String all;
   for (int line = 0; line < 100000; ++line) {
      const String text = "line " + std::to_string(line) + "\n";
      log.write(text);
      all += text;
   }
   EXPECT_EQ(fcntl(pipe.writer.fd(), F_GETFL), flags) << "others write there, too";
   log.write("one\ntwo\n");
   const auto readSome = [&] {
      String some(all.size(), '\0');
      some.resize(static_cast<std::size_t>(read(pipe.reader.fd(), some.data(), some.size())));
      return some;
   };
   const String got = readSome();
   ASSERT_TRUE(all.starts_with(got) && got.ends_with('\n'));
   const auto kept = std::count(got.begin(), got.end(), '\n');
   log.write("then\x9b\n");
   EXPECT_EQ(readSome(),
             std::to_string(100002 - kept) + " lines of this log dropped: nobody read them in time\nthen?\n");
   log.write(String(all.size() * 4, 'x') + "\n"); // of which the pipe takes a part
   EXPECT_EQ(readSome().find_first_not_of('x'), String::npos);
   while (fcntl(pipe.reader.fd(), F_SETFL, O_NONBLOCK) == 0 &&
          read(pipe.reader.fd(), all.data(), all.size()) > 0) {
   }
   log.write("then\n");
   EXPECT_EQ(readSome(), "\n1 line of this log dropped: nobody read them in time\nthen\n");
}

TEST(LogOutput, WaitsNeitherForASocketNorForAClosedPipe) {
   int ends[2];
   ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, ends), 0);
   const Kiln::OwnedFd reader(ends[0]);
   const Kiln::OwnedFd writer(ends[1]);
   Kiln::LogOutput log(writer.fd());
   const String line = String(4095, 'x') + "\n";
   for (int i = 0; i < 1000; ++i) {
      log.write(line);
   }
   String got(line.size(), '\0');
   EXPECT_EQ(recv(reader.fd(), got.data(), got.size(), MSG_WAITALL), ssize_t(line.size()));
   EXPECT_EQ(got, line);
   ZelTest::Pipe closed;
   closed.reader = {};
   Kiln::LogOutput(closed.writer.fd()).write("nobody gets this\n"); // SIGPIPE would end the test
}

// SIGPIPE is left at its default here: it would end the test program.
TEST(TextOutput, AClosedPipeTurnsItOffQuietly) {
   ZelTest::Pipe pipe;
   pipe.reader = {};
   TextOutput out(pipe.writer.fd());
   out.write("lost");
   out.flush();
   EXPECT_FALSE(out.ok());
   out.number(U64{1}, 5);
   out.print("%s", "more");
   out.flush();
   sigset_t pending;
   sigpending(&pending);
   EXPECT_EQ(sigismember(&pending, SIGPIPE), 0);
}

// A pipe holds 64 KiB: a non-blocking one takes short writes, and a blocking one is interrupted by signals.
TEST(TextOutput, ASlowReaderGetsEveryByteThroughShortWritesAndSignals) {
   struct sigaction interrupt {};
   struct sigaction before {};
   interrupt.sa_handler = [](int) {};
   sigaction(SIGUSR1, &interrupt, &before);
   for (const bool blocking : {false, true}) {
      ZelTest::Pipe pipe;
      if (!blocking) {
         ASSERT_EQ(fcntl(pipe.writer.fd(), F_SETFL, O_NONBLOCK), 0);
      }
      String got;
      std::thread reader([&, writer = pthread_self()] {
         char piece[512];
         for (ssize_t n = 0; (n = read(pipe.reader.fd(), piece, sizeof piece)) > 0;) {
            got.append(piece, static_cast<std::size_t>(n));
            pthread_kill(writer, SIGUSR1);
         }
      });
      String sent;
      {
         TextOutput out(pipe.writer.fd());
         for (U64 i = 0; i < 40000; ++i) {
            out.number(i, 8);
            out.write("\n");
            sent += String(8 - std::to_string(i).size(), ' ') + std::to_string(i) + "\n";
         }
         EXPECT_TRUE(out.ok());
      }
      pipe.writer = {};
      reader.join();
      EXPECT_TRUE(got == sent) << got.size() << " of " << sent.size() << " bytes, blocking: " << blocking;
   }
   sigaction(SIGUSR1, &before, nullptr);
}

TEST(TextOutput, AReaderIsWaitedForUntilTheEndDescriptorSaysSo) {
   ZelTest::Pipe pipe;
   const ZelTest::Pipe end;
   const String text(200000, 'x');
   TextOutput out(pipe.writer.fd());
   out.endFdIs(end.reader.fd());
   std::thread reader([&] {
      char byte = 0;
      EXPECT_EQ(read(pipe.reader.fd(), &byte, 1), 1); // the write has begun, and then nothing is read
      EXPECT_EQ(write(end.writer.fd(), "x", 1), 1);
   });
   out.write(text);
   out.flush();
   reader.join();
   EXPECT_EQ(out.error(), ECANCELED);
   TextOutput late(end.writer.fd());
   late.endFdIs(end.reader.fd());
   late.write("what there is room for is written even then");
   late.flush();
   EXPECT_TRUE(late.ok());
}

TEST(TextOutput, AlignsNumbersAndPrintsLinesOfAnyLength) {
   ZelTest::Pipe pipe;
   {
      TextOutput out(pipe.writer.fd());
      out.number(U64{18446744073709551615U}, 3);
      out.number(S64{-42}, 6);
      out.print("|%*s|", 300, "x");
   }
   pipe.writer = {};
   EXPECT_EQ(pipe.readAll(), "18446744073709551615   -42|" + String(299, ' ') + "x|");
}

} // namespace

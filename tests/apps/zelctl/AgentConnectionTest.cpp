// Answers that end early, in another version, or late, or that come from somebody who is not to be believed.
#include "apps/zelctl/connection/AgentConnection.h"

#include "agent/CommandChannel.h"
#include "agent/CommandSocket.h"
#include "apps/zelctl/commands/Completion.h"
#include "kiln/TextOutput.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/ErrorText.h"
#include "tests/support/Pipe.h"
#include "tests/support/TemporaryFolder.h"

#include <csignal>
#include <gtest/gtest.h>
#include <set>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

using Kiln::String;

class AgentConnection : public testing::Test {
 protected:
   AgentConnection() : listening_(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
      const Agent::SocketAddress address(path_);
      EXPECT_EQ(bind(listening_.fd(), address.any(), address.length()), 0);
      EXPECT_EQ(listen(listening_.fd(), 8), 0);
   }

   // Runs the function beside an agent that takes this line, sends these bytes and closes the connection. Its status
   // is 1 if it could not do that.
   template <class Function>
   auto beside(const String& expected, const String& bytes, Function function, int agentStatus = 0) {
      const pid_t agent = ZelTest::spawn([&] {
         const int client = accept(listening_.fd(), nullptr, nullptr);
         char line[64];
         const ssize_t got = recv(client, line, sizeof line, 0);
         const bool isRight = got > 0 && String(line, static_cast<std::size_t>(got)) == expected;
         return isRight && write(client, bytes.data(), bytes.size()) == ssize_t(bytes.size()) ? 0 : 1;
      });
      auto result = function();
      EXPECT_EQ(ZelTest::statusOf(agent), agentStatus);
      return result;
   }

   ZelCtl::Answer answerTo(const String& bytes) {
      return beside("zel/2 show\n", bytes, [this] { return ZelCtl::ask({path_}, "show", nullptr); });
   }

   const ZelTest::TemporaryFolder folder_;
   const String path_ = folder_.path() + "/socket";
   const Kiln::OwnedFd listening_;
};

constexpr const char* cut = "% the agent ended before its answer was complete";

TEST_F(AgentConnection, AnAnswerIsCompleteAtItsLastByteAndNotBefore) {
   for (const String end : {"done", "% refused"}) {
      const String whole = String("zel/2\none\ntwo\n") + '\0' + end + "\n";
      for (std::size_t length = 0; length < whole.size(); ++length) {
         const ZelCtl::Answer part = answerTo(whole.substr(0, length));
         EXPECT_EQ(part.error, cut) << length;
         EXPECT_TRUE(part.isCut);
         EXPECT_EQ(part.text, length < 10 ? "" : length < 14 ? "one\n" : "one\ntwo\n") << "no half lines";
      }
      const ZelCtl::Answer all = answerTo(whole);
      EXPECT_EQ(all.text, "one\ntwo\n");
      EXPECT_EQ(all.error, end == "done" ? "" : end);
      EXPECT_FALSE(all.isCut);
   }
}

TEST_F(AgentConnection, AnAnswerOfAnAgentThatHasNotReadAllOfTheLineCounts) {
   const String line(100, 'x'); // the rest of which resets the connection when the agent closes it
   const auto askIt = [&] { return ZelCtl::ask({path_}, line, nullptr).text; };
   EXPECT_EQ(beside(("zel/2 " + line).substr(0, 64), String("zel/2\nhere\n\0done\n", 17), askIt), "here\n");
}

TEST_F(AgentConnection, HalfOfTheCandidatesAreAnError) {
   const auto complete = [this] {
      return ZelTest::errorOf([this] { ZelCtl::completionsOf({path_, ""}, "counters s"); });
   };
   EXPECT_EQ("% " + beside("zel/2 complete counters s\n", "zel/2\nshow\n", complete), cut);
}

TEST_F(AgentConnection, IsToTheFirstAgentThatAnswers) {
   const std::vector<String> paths{folder_.path() + "/none", folder_.path(), path_};
   const auto askAll = [&] { return ZelCtl::ask(paths, "show", nullptr).text; };
   EXPECT_EQ(beside("zel/2 show\n", String("zel/2\nhere\n\0done\n", 17), askAll), "here\n");
   EXPECT_EQ(ZelCtl::ask({paths[0], paths[1]}, "show", nullptr).error,
             "% no agent answers on " + paths[0] + " or " + paths[1] +
                  ": start one with 'zelagent', or name its socket with --socket PATH");
}

TEST_F(AgentConnection, SaysWhatToUpgrade) {
   const String agent = "% the agent on " + path_;
   const String older = agent + " is older than this zelctl: upgrade zelagent, and start it again";
   const String newer = agent + " is newer than this zelctl: upgrade zelctl";
   EXPECT_EQ(answerTo(String(1, '\0') + "% unknown command 'zel/2': expected counters\n").error, older);
   EXPECT_EQ(answerTo("Intf Ethernet1 (0):\n").error, older);
   EXPECT_EQ(answerTo("zel/3\nwhatever\n").error, newer);
}

TEST_F(AgentConnection, GivesNothingThatATerminalMightObey) {
   const ZelCtl::Answer answer = answerTo("zel/2\na\tb \x1b[2J\x7f\r\x9bm \xc2\x9bm \xc3\xa4\n" +
                                          String(1, '\0') + "% no\x9b\x1b\n\xc2\x85\n");
   EXPECT_EQ(answer.text, "a\tb ?[2J???m ?m \xc3\xa4\n");
   EXPECT_EQ(answer.error, "% no????");
   EXPECT_EQ(ZelCtl::ask({folder_.path() + "/\x1b[2J\x9b"}, "show", nullptr).error.find_first_of("\x1b\x9b"),
             String::npos);
}

TEST_F(AgentConnection, EndsAnAnswerThatIsLongerThanAnyAgents) {
   const std::size_t longest = Agent::CommandSpool::sizeLimit;
   const String end("\0done\n", 6);
   EXPECT_EQ(answerTo("zel/2\n" + String(longest, 'x') + end).text.size(), longest);
   const auto askIt = [this] { return ZelCtl::ask({path_}, "show", nullptr); };
   const ZelCtl::Answer answer =
        beside("zel/2 show\n", "zel/2\n" + String(longest + (1U << 20U), 'x') + end, askIt, 1);
   EXPECT_EQ(answer.text, "");
   EXPECT_EQ(answer.error,
             "% the agent on " + path_ +
                  " answers with more than 64 MiB, which no agent does: find out who listens there");
}

TEST_F(AgentConnection, EndsWhenNothingComes) {
   EXPECT_EQ(ZelCtl::ask({path_}, "show", nullptr, {.perByte = 1, .isSaid = false}).error,
             "% the agent on " + path_ + " did not answer within 1 second: try again");
   EXPECT_EQ(ZelCtl::Patience().perByte, 30);
}

TEST_F(AgentConnection, IsToNoOtherUsersAgentThanRoots) {
   if (geteuid() != 0) {
      GTEST_SKIP() << "only root can be somebody else";
   }
   ASSERT_EQ(chmod(folder_.path().c_str(), 0777), 0);
   const String theirs = folder_.path() + "/theirs";
   const ZelTest::Pipe listens;
   const pid_t stranger = ZelTest::spawn([&] {
      const Agent::SocketAddress address(theirs);
      const Kiln::OwnedFd listening(socket(AF_UNIX, SOCK_STREAM, 0));
      const bool isListening = setuid(65534) == 0 &&
                               bind(listening.fd(), address.any(), address.length()) == 0 &&
                               listen(listening.fd(), 8) == 0 && write(listens.writer.fd(), "x", 1) == 1;
      char line[64];
      for (int i = 0; i < 2; ++i) { // neither client sends anything
         const Kiln::OwnedFd client(accept(listening.fd(), nullptr, nullptr));
         if (!isListening || recv(client.fd(), line, sizeof line, 0) != 0) {
            return 1;
         }
      }
      return 0;
   });
   char byte = 0;
   ASSERT_EQ(read(listens.reader.fd(), &byte, 1), 1);
   EXPECT_EQ(ZelCtl::ask({theirs}, "show", nullptr).error,
             "% the agent on " + theirs +
                  " is run by nobody, not by root: if that is meant, run zelctl as nobody");
   const auto askBoth = [&] { return ZelCtl::ask({theirs, path_}, "show", nullptr).text; };
   EXPECT_EQ(beside("zel/2 show\n", String("zel/2\nhere\n\0done\n", 17), askBoth), "here\n");
   EXPECT_EQ(ZelTest::statusOf(stranger), 0);
}

// Prints more than sockets hold; the process kills itself so many turns of its loop later.
class EndingCommand : public Agent::AgentCommandCallback, private Kiln::ActivityManager::Descriptor {
 public:
   EndingCommand(const Kiln::Ptr<Kiln::ActivityManager>& manager, unsigned turns)
        : AgentCommandCallback("Test", "TestCli"), Descriptor(manager, eventfd(1, EFD_CLOEXEC)),
          turns_(turns) {}

   Agent::CommandResult command(const std::vector<String>& /*words*/, int fd) override {
      Kiln::TextOutput out(fd);
      for (unsigned line = 0; line < 50000; ++line) {
         out.print("%063u\n", line);
      }
      wantsIs(true, false);
      return {};
   }

 private:
   void onReady(bool /*readable*/, bool /*writable*/) override {
      if (turns_-- == 0) {
         raise(SIGKILL);
      }
   }

   unsigned turns_;
};

TEST(AgentsThatAreKilled, GiveAsManyErrors) {
   const ZelTest::TemporaryFolder folder;
   const String path = folder.path() + "/socket";
   constexpr unsigned mostTurns = 45; // in each of which at most 64 KiB of the answer's 3.2 MB are sent
   unsigned errors = 0;
   std::set<std::size_t> lengths;
   for (unsigned round = 0; round < 200; ++round) {
      int started[2];
      ASSERT_EQ(pipe(started), 0);
      const pid_t agent = ZelTest::spawn([&] {
         const auto manager = Kiln::ActivityManager::instance();
         auto directory = Kiln::allocate<Agent::AgentCommandRequestDirSm>();
         directory->agentCommandCallbackIs(Kiln::allocate<EndingCommand>(manager, round % mostTurns));
         auto runner = Kiln::allocate<Agent::CommandRunner>(directory);
         runner->commandTypeIs("show", "TestCli");
         const Agent::CommandChannel channel(manager, runner, path);
         close(started[1]); // the parent reads the end of the pipe
         manager->run();
         return 0;
      });
      close(started[1]);
      char none = 0;
      EXPECT_EQ(read(started[0], &none, 1), 0);
      close(started[0]);
      const ZelCtl::Answer answer = ZelCtl::ask({path}, "show", nullptr);
      errors += answer.isCut && answer.error == cut ? 1U : 0U;
      EXPECT_EQ(answer.error, cut) << "round " << round << ": " << answer.text.size();
      lengths.insert(answer.text.size());
      EXPECT_EQ(ZelTest::statusOf(agent), -SIGKILL);
   }
   EXPECT_EQ(errors, 200U);
   EXPECT_GT(lengths.size(), 2U) << "all were killed at the same place of the answer";
}

} // namespace

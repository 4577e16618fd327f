// The command channel over a real socket. The loop runs on a thread of its own, in simulated time.
#include "agent/CommandChannel.h"

#include "agent/CommandOrigin.h"
#include "agent/CommandSocket.h"
#include "agent/ListeningSocket.h"
#include "kiln/ActivityLock.h"
#include "kiln/TextOutput.h"
#include "tests/support/ErrorText.h"
#include "tests/support/LockWaiter.h"
#include "tests/support/LoggedMessages.h"
#include "tests/support/NoDescriptors.h"
#include "tests/support/SimulatedTime.h"
#include "tests/support/SocketClient.h"
#include "tests/support/TemporaryFolder.h"

#include <atomic>
#include <fstream>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

namespace {

using Kiln::String;

// The test's commands: "say WORD...", "lines N" (of 64 bytes), "until WORD" (is said by another one), "rounds N" (of giving
// way), "refuse" and "throw". Completes "say".
class TestCommand : public Agent::AgentCommandCallback {
 public:
   TestCommand() : AgentCommandCallback("Test", "TestCli") {}

   Agent::CommandResult command(const std::vector<String>& words, int fd) override {
      Kiln::TextOutput out(fd);
      if (words.at(0) == "say") {
         for (std::size_t i = 1; i < words.size(); ++i) {
            out.write(words[i] + "\n");
            said_ = words[i];
         }
      } else if (words.at(0) == "until") {
         const Agent::CommandOrigin origin = Agent::CommandOrigin::current();
         while (said_ != words.at(1) && !Kiln::ActivityManager::instance()->isStopping()) {
            Kiln::ActivityLockAnchor::giveWay();
         }
         out.write(Agent::CommandOrigin::current() == origin ? "said\n" : "said, and another's now\n");
      } else if (words.at(0) == "rounds") {
         for (unsigned long round = 0; round < std::stoul(words.at(1)); ++round) {
            Kiln::ActivityLockAnchor::giveWay();
         }
      } else if (words.at(0) == "lines") {
         for (unsigned long line = 0; line < std::stoul(words.at(1)); ++line) {
            out.print("%063lu\n", line);
         }
      } else if (words.at(0) == "refuse") {
         return {"wrong\x1b[2J\nword"};
      } else {
         throw std::runtime_error("thrown");
      }
      return {};
   }

   bool changes(const std::vector<String>& words) const override { return words.at(0) != "say"; }

   std::vector<String> completions(const std::vector<String>& words) const override {
      return words == std::vector<String>{"say"} ? std::vector<String>{"one", "two", "no word", "no\x1b"}
                                                 : std::vector<String>();
   }

 private:
   String said_;
};

String linesText(unsigned long count) {
   String text;
   for (unsigned long line = 0; line < count; ++line) {
      const String number = std::to_string(line);
      text += String(63 - number.size(), '0') + number + "\n";
   }
   return text;
}

// A whole answer.
String done(const String& text) {
   return "zel/2\n" + text + String(1, '\0') + "done\n";
}
String refusal(const String& error, const String& text = "") {
   return "zel/2\n" + text + String(1, '\0') + "% " + error + "\n";
}

// A client that reads the whole answer.
class Client : public ZelTest::SocketClient {
 public:
   using SocketClient::SocketClient;

   void send(const String& bytes) {
      EXPECT_EQ(::send(fd(), bytes.data(), bytes.size(), MSG_NOSIGNAL), static_cast<ssize_t>(bytes.size()));
   }
   // Waits for the first byte of the answer, but does not take it.
   void awaitAnswer() {
      char byte = 0;
      EXPECT_EQ(recv(fd(), &byte, 1, MSG_PEEK), 1);
   }
   String receive(std::size_t size) {
      String some(size, '\0');
      EXPECT_EQ(recv(fd(), some.data(), size, MSG_WAITALL), static_cast<ssize_t>(size));
      return some;
   }
   String receiveAll() {
      String all;
      char bytes[65536];
      ssize_t got = 0;
      while ((got = recv(fd(), bytes, sizeof bytes, 0)) > 0) {
         all.append(bytes, static_cast<std::size_t>(got));
      }
      EXPECT_TRUE(got == 0 || errno == ECONNRESET) << errno;
      return all;
   }
};

class CommandChannel : public testing::Test {
 protected:
   CommandChannel() {
      auto directory = Kiln::allocate<Agent::AgentCommandRequestDirSm>();
      directory->agentCommandCallbackIs(Kiln::allocate<TestCommand>());
      runner_ = Kiln::allocate<Agent::CommandRunner>(directory);
      runner_->commandTypeIs("test", "TestCli");
      runner_->commandTypeIs("later", "NobodyYet");
   }
   ~CommandChannel() override { stop(); }

   void start(const Agent::CommandChannelLimits& limits = {},
              const std::optional<Agent::CommandReaders>& readers = {}) {
      channel_ = open(limits, readers);
      loop_ = std::thread([this] { manager_->run(); });
   }
   void stop() {
      if (loop_.joinable()) {
         manager_->stop();
         loop_.join();
      }
      channel_ = nullptr;
   }
   Kiln::Ptr<Agent::CommandChannel> open(const Agent::CommandChannelLimits& limits = {},
                                         const std::optional<Agent::CommandReaders>& readers = {}) {
      return Kiln::allocate<Agent::CommandChannel>(manager_, runner_, path_, limits, readers);
   }

   String ask(const String& line) {
      Client client(path_);
      client.send("zel/2 " + line + "\n");
      return client.receiveAll();
   }
   std::size_t clientCount() {
      const auto lock = Kiln::ActivityLockAnchor::lock();
      return channel_->clientCount();
   }
   String openError() {
      return ZelTest::errorOf([this] { open(); });
   }

   const ZelTest::SimulatedTime time_;
   const ZelTest::TemporaryFolder folder_;
   const String path_ = folder_.path() + "/socket";
   const Kiln::Ptr<Kiln::ActivityManager> manager_ = Kiln::ActivityManager::instance();
   Kiln::Ptr<Agent::CommandRunner> runner_;
   Kiln::Ptr<Agent::CommandChannel> channel_;
   std::thread loop_;
};

constexpr unsigned long manyLines = 50000; // 3.2 MB, more than any socket's buffers hold

TEST_F(CommandChannel, AnswersALineWithTextAndTheEnd) {
   start();
   EXPECT_EQ(ask("test say one \t two\r"), done("one\ntwo\n"));
   EXPECT_EQ(ask("test say"), done(""));
   EXPECT_EQ(ask("test lines 50000"), done(linesText(manyLines)));
}

TEST_F(CommandChannel, TellsAClientOfAnotherVersionWhatToUpgrade) {
   start();
   const String older =
        "this client is older than the agent: upgrade zelctl; by hand, begin the line with 'zel/2'";
   const std::vector<std::pair<String, String>> cases = {
        {"test say x", refusal(older).substr(6)}, // it would print the version
        {"", refusal(older).substr(6)},
        {"zel/1 test say x", refusal(older).substr(6)},
        {"zel/2x test say x", refusal(older).substr(6)},
        {"zel/3 test say x", refusal("this client is newer than the agent: upgrade zelagent")},
        {"zel/2\r", refusal("no command: expected later, test")},
   };
   for (const auto& [line, answer] : cases) {
      Client client(path_);
      client.send(line + "\n");
      EXPECT_EQ(client.receiveAll(), answer) << line;
   }
}

TEST_F(CommandChannel, CompletesALineWithWordsThatCanBeTyped) {
   start();
   const std::vector<std::pair<String, String>> cases = {
        {"complete", "later\ntest\n"}, {"complete ", "later\ntest\n"},
        {" complete\tt", "test\n"},    {"complete c", ""},
        {"complete later ", ""},       {"complete test say ", "one\ntwo\n"},
        {"complete test say t\r", ""}, {"complete test say t", "two\n"},
        {"complete test bogus ", ""},
   };
   for (const auto& [line, words] : cases) {
      EXPECT_EQ(ask(line), done(words)) << line;
   }
}

TEST_F(CommandChannel, TakesALineInPiecesAndOneThatEndsWithTheConnection) {
   start();
   Client client(path_);
   client.send("zel/2 test sa");
   EXPECT_EQ(ask("test say between"), done("between\n"));
   client.send("y whole");
   client.endSending();
   EXPECT_EQ(client.receiveAll(), done("whole\n"));
}

TEST_F(CommandChannel, RefusesWithOnePrintableLineAfterTheMark) {
   start();
   const std::vector<std::pair<String, String>> cases = {
        {"", "no command: expected later, test"},
        {"bogus", "unknown command 'bogus': expected later, test"},
        {"later on", "nobody answers 'later' yet: try again when the agent is up"},
        {"test refuse", "wrong?[2J?word"},
        {"test throw", "the command failed: thrown"},
        {String("test say a") + String(4096, 'a'),
         "the command is longer than 4095 bytes: expected one line of words"},
   };
   for (const auto& [line, error] : cases) {
      EXPECT_EQ(ask(line), refusal(error)) << line.substr(0, 40);
   }
   EXPECT_EQ(ask("test say " + String(4095 - 15, 'a')), done(String(4095 - 15, 'a') + "\n")) << "just fits";
}

TEST_F(CommandChannel, AReaderThatStallsHoldsUpNobody) {
   start();
   Client slow(path_);
   slow.send("zel/2 test lines 50000\n");
   slow.awaitAnswer();
   EXPECT_EQ(ask("test say quick"), done("quick\n"));
   EXPECT_EQ(clientCount(), 1U);
   EXPECT_EQ(slow.receiveAll(), done(linesText(manyLines)));
}

TEST_F(CommandChannel, AShortCommandDoesNotWaitForALongOne) {
   const ZelTest::NoSlices noSlices;
   start();
   Client first(path_);
   first.send("zel/2 test until two\nand what follows");
   Client second(path_);
   second.send("zel/2 test until one\n");
   EXPECT_EQ(ask("test lines 50000"), done(linesText(manyLines)));
   EXPECT_EQ(ask("test say one"), done("one\n"));
   EXPECT_EQ(second.receiveAll(), done("said\n"));
   EXPECT_EQ(ask("test say two"), done("two\n"));
   EXPECT_EQ(first.receiveAll(), done("said\n"));
}

TEST_F(CommandChannel, ManyLongCommandsAtOnceAreAllAnswered) {
   const ZelTest::NoSlices noSlices;
   start();
   std::vector<std::unique_ptr<Client>> clients;
   for (int i = 0; i < 15; ++i) { // more than run within one another
      clients.push_back(std::make_unique<Client>(path_));
      clients.back()->send("zel/2 test rounds 2000\n");
   }
   clients.erase(clients.begin(), clients.begin() + 3); // who leave in the middle
   for (const auto& client : clients) {
      EXPECT_EQ(client->receiveAll(), done(""));
   }
   EXPECT_EQ(ask("test say next"), done("next\n"));
}

TEST_F(CommandChannel, EndsInTheMiddleOfACommand) {
   const ZelTest::NoSlices noSlices;
   start();
   Client client(path_);
   client.send("zel/2 test until never\n");
   EXPECT_EQ(ask("test say next"), done("next\n")) << "so the other command runs by now";
   stop();
   const String answer = client.receiveAll();
   EXPECT_TRUE(answer.empty() || answer == done("said\n")) << answer;
}

TEST_F(CommandChannel, AReaderThatLeavesIsForgotten) {
   start();
   {
      Client leaving(path_);
      leaving.send("zel/2 test lines 50000\n");
      leaving.awaitAnswer();
      const Client silent(path_);
   }
   EXPECT_EQ(ask("test say next"), done("next\n"));
   EXPECT_EQ(ask("test say next"), done("next\n"));
   EXPECT_EQ(clientCount(), 0U);
}

TEST_F(CommandChannel, TextEndsWithAWholeLineAtTheBound) {
   start({.answerBytes = 3 * 4096});
   const String error = "the output ends here, at its bound of 12 KiB: ask for one chip, interface or table, "
                        "or with nonzero";
   EXPECT_EQ(ask("test lines 100000"), refusal(error, linesText(192))) << "64 bytes a line: exactly full";
   EXPECT_EQ(ask("test say x " + String(4000, 'y')), done("x\n" + String(4000, 'y') + "\n"));
}

TEST(CommandSpool, CutsTheLineThatTheBoundCuts) {
   const Agent::CommandSpool spool(4096);
   Kiln::TextOutput out(spool.fd());
   for (int line = 0; line < 1000; ++line) {
      out.write("seven..\n.");
   }
   out.flush();
   EXPECT_FALSE(out.ok());
   ASSERT_TRUE(spool.isFull());
   String text(spool.size(), '\0');
   EXPECT_EQ(spool.read(0, text.data(), text.size()), text.size());
   EXPECT_EQ(text.back(), '\n');
   EXPECT_GT(text.size(), 4096U - 9U);
}

TEST_F(CommandChannel, RefusesMoreClientsAndMoreWaitingTextThanItsLimits) {
   start({.clients = 2, .waitingBytes = 1U << 20U});
   Client slow(path_);
   slow.send("zel/2 test lines 50000\n");
   slow.awaitAnswer();
   EXPECT_EQ(ask("test say x"),
             refusal("too much output waits for clients that read slowly: try again later"));
   {
      Client silent(path_);
      EXPECT_EQ(Client(path_).receiveAll(), refusal("too many clients at once: try again later"));
   }
   EXPECT_EQ(slow.receiveAll(), done(linesText(manyLines)));
   EXPECT_EQ(ask("test say x"), done("x\n"));
}

TEST_F(CommandChannel, RefusesTheNewestClientWithoutDescriptorsAndSaysSoOnce) {
   start();
   EXPECT_EQ(ask("test say x"), done("x\n"));
   while (clientCount() > 0) {
   }
   ZelTest::LoggedMessages messages;
   {
      ZelTest::NoDescriptors none;
      none.give(1); // the client's
      for (int i = 0; i < 3; ++i) {
         EXPECT_EQ(Client(path_).receiveAll(), refusal("the agent has no descriptors left: try again later"));
      }
   }
   EXPECT_EQ(messages.take(), (std::vector<String>{"AGENT_COMMANDS_REFUSED Clients on " + path_ +
                                                   " are refused: Too many open files."}));
   EXPECT_EQ(ask("test say x"), done("x\n"));
   EXPECT_EQ(ask("test say x"), done("x\n"));
   EXPECT_EQ(messages.take(),
             (std::vector<String>{"AGENT_COMMANDS_TAKEN Clients on " + path_ + " are served again."}));
}

TEST_F(CommandChannel, TimesOutClientsThatSendOrTakeNothing) {
   start();
   Client silent(path_);
   Client stalled(path_);
   stalled.send("zel/2 test lines 50000\n");
   stalled.awaitAnswer();
   Client slow(path_);
   slow.send("zel/2 test lines 50000\n");
   slow.awaitAnswer();
   manager_->advance(10.0);
   EXPECT_EQ(silent.receiveAll(), refusal("no command came: expected one line"));
   const String begun =
        slow.receive(1U << 20U); // more than a socket holds: the agent has sent of it just now
   manager_->advance(55.0);
   EXPECT_EQ(begun + slow.receiveAll(), done(linesText(manyLines)));
   EXPECT_LT(stalled.receiveAll().size(), linesText(manyLines).size());
   EXPECT_EQ(clientCount(), 0U);
}

TEST_F(CommandChannel, ReplacesOnlyTheSocketOfADeadAgent) {
   const Agent::SocketAddress address(path_);
   const int dead = socket(AF_UNIX, SOCK_STREAM, 0);
   ASSERT_EQ(bind(dead, address.any(), address.length()), 0);
   close(dead);
   start();
   EXPECT_EQ(ask("test say here"), done("here\n"));
   EXPECT_EQ(openError(),
             "another agent answers on " + path_ + ": stop it, or choose another socket with --socket PATH");
   EXPECT_EQ(ask("test say still"), done("still\n"));
   stop();
   EXPECT_NE(access(path_.c_str(), F_OK), 0) << "removed at the end";

   start();
   const int successor = socket(AF_UNIX, SOCK_STREAM, 0);
   rename(path_.c_str(), (path_ + ".old").c_str()); // not unlink, which would free its inode for reuse
   ASSERT_EQ(bind(successor, address.any(), address.length()), 0);
   stop();
   EXPECT_EQ(access(path_.c_str(), F_OK), 0) << "another's";
   ASSERT_EQ(listen(successor, 0), 0);
   {
      const Client waiting(path_); // fills its queue
      EXPECT_EQ(openError(), "another agent answers on " + path_ +
                                  ": stop it, or choose another socket with --socket PATH");
   }
   close(successor);
   unlink((path_ + ".old").c_str());
   unlink(path_.c_str());

   std::ofstream(path_) << "precious";
   EXPECT_EQ(openError(), path_ + " exists and is no socket: choose another with --socket PATH");
   EXPECT_EQ(access(path_.c_str(), F_OK), 0);
}

TEST_F(CommandChannel, OnlyOneOfSeveralAgentsGetsAStaleSocket) {
   constexpr int agents = 4;
   for (int round = 0; round < 200; ++round) {
      const Agent::SocketAddress address(path_);
      const Kiln::OwnedFd dead(socket(AF_UNIX, SOCK_STREAM, 0));
      ASSERT_EQ(bind(dead.fd(), address.any(), address.length()), 0);
      std::atomic<int> waiting{agents};
      std::vector<Kiln::OwnedFd> sockets(agents);
      std::vector<std::thread> starts;
      for (Kiln::OwnedFd& made : sockets) {
         starts.emplace_back([&] {
            --waiting;
            while (waiting > 0) {
               std::this_thread::yield();
            }
            try {
               made = Agent::listenOn(path_);
            } catch (const std::runtime_error&) { // another agent was first
            }
         });
      }
      for (std::thread& one : starts) {
         one.join();
      }
      int listening = 0;
      for (const Kiln::OwnedFd& one : sockets) {
         listening += one.isOpen();
      }
      ASSERT_EQ(listening, 1) << "round " << round;
      unlink(path_.c_str());
   }
}

TEST_F(CommandChannel, OnlyItsUserMayOpenTheSocket) {
   const mode_t before = umask(0);
   start();
   umask(before);
   struct stat status {};
   ASSERT_EQ(stat(path_.c_str(), &status), 0);
   EXPECT_EQ(status.st_mode & 0777U, 0600U);
}

TEST_F(CommandChannel, ReadersGetWhatChangesNothing) {
   const gid_t group = getuid() == 0 ? 4321 : getgid(); // root may give a file to any group
   start({}, Agent::CommandReaders{group, "/full"});
   struct stat status {};
   ASSERT_EQ(stat(path_.c_str(), &status), 0);
   EXPECT_EQ(status.st_mode & 0777U, 0660U);
   EXPECT_EQ(status.st_gid, group);
   const String readOnly =
        refusal("this socket is for reading only: as " + Agent::userName(getuid()) + ", use --socket /full");
   const std::vector<std::pair<String, String>> cases = {
        {"test say x", done("x\n")},
        {"test lines 1", readOnly},
        {"test", readOnly}, // it throws, so nobody knows
        {"complete test say o", done("one\n")},
        {" complete test", done("test\n")},
        {"bogus", refusal("unknown command 'bogus': expected later, test")},
        {"", refusal("no command: expected later, test")},
        {"\t test\vlines\f1", readOnly},
        {"test say x\ntest lines 1", done("x\n")}, // one command a connection
        {"comp test lines 1", refusal("unknown command 'comp': expected later, test")},
        {"completetest lines 1", refusal("unknown command 'completetest': expected later, test")},
        {"complete\vtest lines 1", done("")},
        {String("test\0lines 1", 12), refusal("unknown command 'test?lines': expected later, test")},
        {"test say " + String(4096, 'x'),
         refusal("the command is longer than 4095 bytes: expected one line of words")},
   };
   for (const auto& [line, answer] : cases) {
      EXPECT_EQ(ask(line), answer) << line;
   }
}

// Connections that come without end are taken a few at a time.
TEST_F(CommandChannel, WhoeverConnectsWithoutEndHoldsUpNoOtherSocket) {
   start();
   const String other = folder_.path() + "/other";
   Kiln::Ptr<Agent::CommandChannel> channel;
   {
      const auto lock = Kiln::ActivityLockAnchor::lock();
      channel = Kiln::allocate<Agent::CommandChannel>(manager_, runner_, other);
   }
   std::atomic<bool> isOver{false};
   std::vector<std::thread> flood;
   for (int i = 0; i < 3; ++i) {
      flood.emplace_back([&] {
         while (!isOver) {
            const Client client(path_);
         }
      });
   }
   for (int i = 0; i < 50; ++i) {
      Client client(other);
      client.send("zel/2 test say x\n");
      EXPECT_EQ(client.receiveAll(), done("x\n"));
   }
   isOver = true;
   for (std::thread& one : flood) {
      one.join();
   }
   stop();
}

TEST(CommandSocket, AnInvalidPathIsRefused) {
   EXPECT_THROW(Agent::SocketAddress(""), std::runtime_error);
   EXPECT_THROW(Agent::SocketAddress(String(108, 'x')), std::runtime_error);
   EXPECT_NO_THROW(Agent::SocketAddress(String(107, 'x')));
}

} // namespace

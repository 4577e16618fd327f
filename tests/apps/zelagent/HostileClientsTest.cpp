// Half lines, long lines, NULs, clears in any disguise; clients that read nothing, or leave, and more of them than are
// served at once: the agent goes on, and who may only read changes nothing.
//
// ZEL_TEST_SEED repeats a run.
#include "agent/CommandChannel.h"
#include "agent/CommandSocket.h"
#include "tests/apps/zelagent/AgentRig.h"
#include "tests/support/Random.h"
#include "tests/support/SocketClient.h"
#include "tests/support/TemporaryFolder.h"

#include <cstring>
#include <thread>

namespace {

using Kiln::String;
using Words = std::vector<String>;

// A client that misbehaves.
class HostileClient : public ZelTest::SocketClient {
 public:
   using SocketClient::SocketClient;

   // Sends as much as the agent takes; it may close at any time.
   void send(const String& bytes) const {
      ::send(fd(), bytes.data(), bytes.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
   }
   // Reads the beginning of the answer, which may be empty.
   String receive() const {
      String bytes(100, '\0');
      const ssize_t got = recv(fd(), bytes.data(), bytes.size(), MSG_WAITALL);
      EXPECT_TRUE(got >= 0 || errno == ECONNRESET) << std::strerror(errno);
      bytes.resize(static_cast<std::size_t>(std::max<ssize_t>(got, 0)));
      return bytes;
   }
};

class HostileClients : public ZelTest::AgentRig {
 protected:
   HostileClients() {
      start({.chips = 2, .pipes = 2, .ports = 4});
      agent_->traffic().onIs(true);
      advance(4.0);
      const auto runner = agent_->commandRunner();
      channel_ = Kiln::allocate<Agent::CommandChannel>(manager_, runner, path_);
      readers_ =
           Kiln::allocate<Agent::CommandChannel>(manager_, runner, readPath_, Agent::CommandChannelLimits{},
                                                 Agent::CommandReaders{getgid(), path_});
      loop_ = std::thread([this] { manager_->run(); });
   }
   ~HostileClients() override {
      manager_->stop();
      loop_.join();
   }

   String randomBytes(U64 atMost) {
      String text(random_.below(atMost + 1), '\0');
      for (char& c : text) {
         c = random_.byte();
      }
      return text;
   }

   // Keywords in full or shortened, or with a byte that is wrong.
   String clear() {
      static const std::vector<Words> clears = {
           {"clear"},         {"clear", "mac"}, {"clear", "mac", "intf", "Ethernet1"},
           {"clear", "drop"}, {"clear", "pdp"}, {"clear", "table", "ingressPortCount"}};
      String line = "counters";
      const bool isShort = random_.oneIn(4);
      for (const String& word : random_.oneOf(clears)) {
         line += " " + (isShort ? word.substr(0, 1 + random_.below(word.size())) : word);
      }
      if (!random_.oneIn(4)) {
         line[random_.below(line.size())] = random_.byte();
      }
      return line;
   }

   String hostileBytes() {
      static const Words starts = {"zel/2 counters show mac", "zel/2 counters show table",
                                   "zel/2 counters show mac intf Ethernet1 nonzero", "counters show drop",
                                   "zel/"};
      if (random_.oneIn(2)) {
         return "zel/2 " + clear() + "\n";
      }
      String bytes = random_.oneIn(2) ? random_.oneOf(starts) : "";
      if (!random_.oneIn(4)) {
         bytes += randomBytes(random_.oneIn(4) ? 3 * Agent::commandLineLimit : 100);
      }
      return bytes + (random_.oneIn(2) ? "\n" : "");
   }

   void attack(const String& path) {
      std::vector<std::unique_ptr<HostileClient>> open;
      for (U64 round = 0; round < rounds; ++round) {
         if (open.size() > 20) { // more than the agent serves at once
            open.clear();
         }
         const auto& client = open.emplace_back(std::make_unique<HostileClient>(path));
         const String bytes = hostileBytes();
         const std::size_t half = random_.below(bytes.size() + 1);
         client->send(bytes.substr(0, half));
         client->send(bytes.substr(half));
         if (random_.oneIn(2)) {
            client->endSending();
            client->receive(); // an answer comes, whatever was sent
         }
         if (random_.oneIn(2)) {
            open.pop_back();
         }
      }
      open.clear();
      String answer;
      do { // until the agent has noticed which clients left
         const HostileClient plain(path);
         plain.send("zel/2 counters show mac intf Ethernet1\n");
         answer = plain.receive();
      } while (answer.find("too many clients at once") != String::npos);
      EXPECT_EQ(answer.substr(0, 26), "zel/2\nIntf Ethernet1 (0):\n");
   }

   // Who has cleared something.
   bool isCleared() { return run("counters show json").text.find("\"cleared-by\":\"") != String::npos; }

   static constexpr U64 rounds = 500;
   ZelTest::Random random_;
   const ZelTest::TemporaryFolder folder_;
   const String path_ = folder_.path() + "/socket";
   const String readPath_ = folder_.path() + "/read-socket";
   const Kiln::Ptr<Kiln::ActivityManager> manager_ = Kiln::ActivityManager::instance();
   Kiln::Ptr<Agent::CommandChannel> channel_;
   Kiln::Ptr<Agent::CommandChannel> readers_;
   std::thread loop_;
};

TEST_F(HostileClients, ChangeNothingOnTheSocketForReaders) {
   attack(readPath_);
   EXPECT_FALSE(isCleared());
}

TEST_F(HostileClients, AreSurvivedOnTheAgentsOwnSocket) {
   attack(path_);
   EXPECT_TRUE(isCleared()) << "some of what they send are clears";
}

} // namespace

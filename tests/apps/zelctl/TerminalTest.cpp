// The prompt and a watch at a terminal of their own: what is typed, what is seen, and the terminal afterwards.
#include "agent/CommandSocket.h"
#include "apps/zelctl/Commands.h"
#include "apps/zelctl/prompt/Prompt.h"
#include "silo/Table.h"
#include "tests/support/TemporaryFolder.h"
#include "vex/PublishedRecords.h"

#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <gtest/gtest.h>
#include <optional>
#include <poll.h>
#include <pty.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>
#include <utmp.h>

namespace {

using Kiln::String;
using Silo::Interface::L3IntfCounters;

class Terminal : public testing::Test {
 protected:
   Terminal() {
      table_.emplace(Silo::Store::directory(folder_.path()), Silo::Interface::TableName::vlanIntfCounters,
                     L3IntfCounters{},
                     Silo::TableOptions{.capacity = 16,
                                        .pollingInterval = 2,
                                        .clockDomain = Silo::ClockDomain::monotonic(),
                                        .onCorruption = {},
                                        .isBegunAnew = false});
      publish(1000);
      const winsize size{24, 80, 0, 0};
      EXPECT_EQ(openpty(&master_, &slave_, nullptr, nullptr, &size), 0);
      tcgetattr(slave_, &before_);
   }
   ~Terminal() override {
      if (child_ > 0) {
         kill(child_, SIGKILL);
         waitpid(child_, nullptr, 0);
      }
      close(master_);
      close(slave_);
   }

   void publish(U64 octets) {
      L3IntfCounters counters;
      counters.totals = {octets, 2, 3, 4};
      table_->recordIs("Vlan20", counters, Silo::monotonicNow());
   }

   // In a process of its own, with the terminal as its own; it ends with what the function returns.
   void start(const std::function<int(const ZelCtl::Client&)>& function) {
      child_ = fork();
      ASSERT_GE(child_, 0);
      if (child_ == 0) {
         close(master_);
         login_tty(slave_);
         setenv("TERM", "xterm", 1);
         setenv("XDG_STATE_HOME", folder_.path().c_str(), 1);
         _exit(function({folder_.path() + "/no-agent", folder_.path()}));
      }
   }

   void type(const String& keys) {
      ASSERT_EQ(write(master_, keys.data(), keys.size()), static_cast<ssize_t>(keys.size()));
   }

   // Takes what is shown up to the text; fails when it doesn't come.
   void expect(const String& text) {
      constexpr int patience = 20000;                       // milliseconds, on a machine that does much else
      constexpr std::size_t enough = std::size_t(1) << 20U; // bytes, of a watch that goes on and on
      while (seen_.find(text) == String::npos) {
         pollfd ready{master_, POLLIN, 0};
         char bytes[4096];
         const bool isOut = seen_.size() > enough || poll(&ready, 1, patience) != 1;
         const ssize_t got = isOut ? -1 : read(master_, bytes, sizeof bytes);
         ASSERT_GT(got, 0) << "no " << testing::PrintToString(text) << " in "
                           << testing::PrintToString(seen_.substr(0, enough / 256));
         seen_.append(bytes, static_cast<std::size_t>(got));
      }
      seen_.erase(0, seen_.find(text) + text.size());
   }

   // That it ends so, and leaves the terminal as it was.
   void expectEnd(int expected) {
      int status = 0;
      ASSERT_EQ(waitpid(child_, &status, 0), child_);
      child_ = -1;
      EXPECT_TRUE(WIFEXITED(status));
      EXPECT_EQ(WEXITSTATUS(status), expected);
      termios after{};
      ASSERT_EQ(tcgetattr(slave_, &after), 0);
      EXPECT_EQ(after.c_lflag, before_.c_lflag);
      EXPECT_EQ(after.c_iflag, before_.c_iflag);
   }

   const ZelTest::TemporaryFolder folder_;
   std::optional<Silo::Table<L3IntfCounters>> table_;
   int master_ = -1;
   int slave_ = -1;
   pid_t child_ = -1;
   termios before_{};
   String seen_;
};

TEST_F(Terminal, ThePromptEditsCompletesAndRemembers) {
   start(ZelCtl::runPrompt);
   expect("zel> ");
   type("vla\tnonz\tjson \x1b[D\x1b[D\x1b[D\x1b[D\x1b[D\x17\r");
   expect("Vlan20");
   expect("zel> ");
   type("nonsense\x03");
   expect("^C");
   type("vlans \t"); // several may follow
   expect("nonzero");
   type("\x15\x10");
   expect("vlans json");
   type("\r");
   expect("\"in-octets\": 1000");
   expect("zel> ");
   type("counters sh\t"); // no agent: nothing follows, and nothing is said
   expect("\a");
   type("\x15"
        "bogus\r");
   expect("% no agent answers");
   type("quit\r");
   expectEnd(0);
   EXPECT_EQ(seen_.find('%'), String::npos) << seen_;
}

TEST_F(Terminal, ThePromptLeavesTheTerminalAsItWasWhenItIsEnded) {
   start(ZelCtl::runPrompt);
   expect("zel> ");
   kill(child_, SIGTERM);
   expectEnd(128 + SIGTERM);
   start(ZelCtl::runPrompt);
   expect("Tab completes");
   expect("zel> ");
   type("\x04");
   expectEnd(0);
}

TEST_F(Terminal, AWatchShowsChangesAndGoesAsTold) {
   const auto watch = [](const ZelCtl::Client& client) {
      return runLine(client, "watch 0.1 vlans", nullptr);
   };
   start(watch);
   expect("\x1b[?1049h");
   expect("Vlan20");
   publish(3000);
   expect(" 3000\x1b[0m"); // what changed stands out
   type("q");
   expect("\x1b[?1049l");
   expectEnd(0);
   for (const auto& [signal, status] : {std::pair{SIGINT, 0}, std::pair{SIGTERM, 128 + SIGTERM}}) {
      start(watch);
      expect("\x1b[?1049h"); // the picture that the one before left may still be on its way
      expect("Vlan20");
      if (signal == SIGINT) {
         type("\x03");
      } else {
         kill(child_, signal);
      }
      expect("\x1b[?1049l");
      expectEnd(status);
   }
}

TEST_F(Terminal, AWatchHearsKeysWhileItsAgentHangs) {
   const int listening = socket(AF_UNIX, SOCK_STREAM, 0);
   const Agent::SocketAddress address(folder_.path() + "/no-agent");
   ASSERT_EQ(bind(listening, address.any(), address.length()), 0);
   ASSERT_EQ(listen(listening, 1), 0);
   start([](const ZelCtl::Client& client) { return runLine(client, "watch 0.1 counters show", nullptr); });
   const int first = accept(listening, nullptr, nullptr);
   char request[64];
   EXPECT_GT(recv(first, request, sizeof request, 0), 0);
   const String answer = R"({"chips": [{"chip": "Zel0", "error": "nothing yet"}]})";
   EXPECT_EQ(send(first, answer.data(), answer.size(), 0), static_cast<ssize_t>(answer.size()));
   close(first);
   expect("nothing yet");
   const int second = accept(listening, nullptr, nullptr);
   expect("\x1b[J");
   type("xq");
   expect("\x1b[?1049l");
   EXPECT_EQ(seen_.find("(trying again)"), String::npos) << "it was given up before";
   expectEnd(0);
   close(second);
   close(listening);
}

TEST_F(Terminal, AWatchEndsInThePromptThatItCameFrom) {
   start(ZelCtl::runPrompt);
   expect("zel> ");
   type("watch 3600 vlans\r");
   expect("Vlan20");
   type("\x03");
   expect("\x1b[?1049l");
   expect("zel> ");
   type("qui\r");
   expectEnd(0);
}

} // namespace

// The prompt and a watch at a terminal: what is typed, what is shown, and the terminal's mode afterwards.
#include "agent/CommandSocket.h"
#include "apps/zelctl/commands/Commands.h"
#include "apps/zelctl/prompt/Prompt.h"
#include "silo/Table.h"
#include "tests/apps/zelctl/TerminalRig.h"
#include "tests/support/TemporaryFolder.h"
#include "vex/PublishedRecords.h"

#include <optional>
#include <sys/socket.h>

namespace {

using Kiln::String;
using Silo::Interface::L3IntfCounters;

class Terminal : public ZelTest::TerminalRig {
 protected:
   Terminal() {
      table_.emplace(Silo::Store::directory(folder_.path()), Silo::Interface::TableName::vlanIntfCounters,
                     L3IntfCounters{}, Silo::TableOptions{16, 2, Silo::ClockDomain::monotonic(), {}, false});
      publish(1000);
   }

   void publish(U64 octets) {
      L3IntfCounters counters;
      counters.totals = {octets, 2, 3, 4};
      table_->recordIs("Vlan20", counters, Silo::monotonicNow());
   }

   void startClient(const std::function<int(ZelCtl::Client)>& function) {
      start([&] {
         setenv("XDG_STATE_HOME", folder_.path().c_str(), 1);
         return function({folder_.path() + "/no-agent", folder_.path()});
      });
   }

   const ZelTest::TemporaryFolder folder_;
   std::optional<Silo::Table<L3IntfCounters>> table_;
};

TEST_F(Terminal, ThePromptEditsCompletesAndRemembers) {
   startClient(ZelCtl::runPrompt);
   expect("zel> ");
   type("vlans | inc\tVlan | count\r");
   expect("1 line");
   expect("zel> ");
   type("vla\tnonz\tjson \x1b[D\x1b[D\x1b[D\x1b[D\x1b[D\x17\r");
   expect("Vlan20");
   expect("zel> ");
   type("nonsense\x03");
   expect("^C");
   type("vlans \t"); // several words may follow
   expect("nonzero");
   type("\x15\x10");
   expect("vlans json");
   type("\r");
   expect("\"in-octets\": 1000");
   expect("zel> ");
   type("counters sh\t"); // without an agent there are no candidates, and no error
   expect("\a");
   type("\x15"
        "bogus\r");
   expect("% no agent answers");
   type("quit\r");
   expectEnd(0);
   EXPECT_EQ(seen_.find('%'), String::npos) << seen_;
}

TEST_F(Terminal, ThePromptLeavesTheTerminalAsItWasWhenItIsEnded) {
   startClient(ZelCtl::runPrompt);
   expect("zel> ");
   kill(child_, SIGTERM);
   expectEnd(128 + SIGTERM);
   startClient(ZelCtl::runPrompt);
   expect("Tab completes");
   expect("zel> ");
   type("\x04");
   expectEnd(0);
}

TEST_F(Terminal, AWatchShowsChangesAndEndsOnRequest) {
   const auto watch = [](const ZelCtl::Client& client) {
      return runLine(client, "watch 0.1 vlans", nullptr);
   };
   startClient(watch);
   expect("\x1b[?1049h");
   expect("Vlan20");
   publish(3000);
   expect(" 3000\x1b[0m"); // what changed stands out
   type("q");
   expect("\x1b[?1049l");
   expectEnd(0);
   for (const auto& [signal, status] : {std::pair{SIGINT, 0}, std::pair{SIGTERM, 128 + SIGTERM}}) {
      startClient(watch);
      expect("\x1b[?1049h"); // before it may come the last picture of the previous watch
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
   startClient(
        [](const ZelCtl::Client& client) { return runLine(client, "watch 0.1 counters show", nullptr); });
   const int first = accept(listening, nullptr, nullptr);
   char request[64];
   EXPECT_GT(recv(first, request, sizeof request, 0), 0);
   const String answer = "zel/2\n"
                         R"({"chips": [{"chip": "Zel0", "error": "nothing yet"}]})" +
                         String("\0done\n", 6);
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

TEST_F(Terminal, WhatIsLongerThanTheScreenGoesThroughThePager) {
   const auto run = [this](const char* pager, const String& line, bool usesPager = true) {
      startClient([=](ZelCtl::Client client) {
         client.usesPager = usesPager;
         setenv("PAGER", pager, 1);
         return runLine(client, line, nullptr);
      });
   };
   resize(80, 2); // less than the table and a prompt
   run("sed s/^/paged:/", "vlans");
   expect("paged:Vlan20");
   expectEnd(0);
   const std::vector<std::tuple<const char*, const char*, bool>> unpaged = {
        {"sed s/^/paged:/", "vlans", false},
        {"sed s/^/paged:/", "vlans | include Vlan20", true},
        {"", "vlans", true},
        {"/none/such", "vlans", true},
   };
   for (const auto& [pager, line, usesPager] : unpaged) {
      run(pager, line, usesPager);
      const String before = shownBefore("Vlan20");
      EXPECT_EQ(before.find("paged:"), String::npos) << before;
      expectEnd(0);
   }
   // Ctrl-C is the pager's own, and so is the terminal until it ends. A shell that only read would miss what comes just
   // before it does.
   run("trap 'isOver=1' INT; cat; echo waiting; until [ \"$isOver\" ]; do sleep 0.02; done;"
       "echo interrupted; read -r key </dev/tty; echo over",
       "vlans");
   expect("waiting");
   type("\x03");
   expect("interrupted");
   type("\r");
   expect("over");
   expectEnd(0);
}

TEST_F(Terminal, AWatchEndsInThePromptThatItCameFrom) {
   startClient(ZelCtl::runPrompt);
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

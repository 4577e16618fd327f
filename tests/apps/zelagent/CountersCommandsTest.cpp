// The grammar of the counters commands, and which chips they reach.
#include "counters/ZelCounters.h"
#include "counters/ZelCountersCli.h"
#include "kiln/Trace.h"
#include "tests/apps/zelagent/AgentRig.h"
#include "tests/support/Environment.h"

#include <gmock/gmock.h>
#include <sstream>

namespace {

using Kiln::String;

// Two chips of two ports; counter 0 reads the interface's own number.
class CountersCommands : public ZelTest::AgentRig {
 protected:
   CountersCommands() {
      start({.chips = 2, .pipes = 1, .ports = 2});
      for (const char number : {'1', '2', '3', '4'}) {
         const auto port = agent_->portOf(String("Ethernet") + number);
         port.chip.rmonIs(port.devicePort, 0, static_cast<U64>(number - '0'));
      }
      advance(2.0);
   }

   String completions(const String& line) {
      const ZelTest::Asked asked = run("complete " + line);
      EXPECT_EQ(asked.error, "") << line;
      return asked.text;
   }
};

String block(unsigned number, unsigned port) {
   return "Intf Ethernet" + std::to_string(number) + " (" + std::to_string(port) + "):\n" +
          "FramesReceivedOK" + String(24 + 4 + 14, ' ') + std::to_string(number) + "\n\n";
}

const String zel0 = block(1, 0) + block(2, 1) + "\n";
const String zel1 = block(3, 0) + block(4, 1) + "\n";

TEST_F(CountersCommands, ClearOnlyTheNamedChip) {
   EXPECT_EQ(ask("chip Zel0 cl mac").text, "");
   EXPECT_EQ(ask("show mac nonzero").text, "\nZel0: cleared 0 s ago by the test\n" + zel1);
   EXPECT_EQ(ask("clear mac").error, "");
   EXPECT_EQ(ask("show mac nonzero").text,
             "\nZel0: cleared 0 s ago by the test\n\nZel1: cleared 0 s ago by the test\n");
}

TEST_F(CountersCommands, RefusedOnesSayWhatIsExpectedAndDoNothing) {
   const std::vector<std::pair<String, String>> cases = {
        {"Show mac", "unexpected 'Show': did you mean show?"},
        {"show mace", "unexpected 'mace' after 'show': did you mean mac?"},
        {"show mca", "unexpected 'mca' after 'show': did you mean mac?"},
        {"clear x", "unexpected 'x' after 'clear': expected"},
        {"show m", "'m' is ambiguous after 'show': expected mac or mau-deparser-drop"},
        {"show mac intf " + String(50, 'x'),
         "unknown interface '" + String(40, 'x') + "...': expected Ethernet1 to Ethernet4"},
        {"chip Zel0", "the command is incomplete after 'chip Zel0': expected"},
        {"chip Zel0 chip Zel1 clear mac", "unexpected 'chip' after 'chip Zel0': expected"},
   };
   for (const auto& [command, error] : cases) {
      const ZelTest::Asked asked = ask(command);
      EXPECT_EQ(asked.error.substr(0, error.size()), error) << command;
      EXPECT_EQ(asked.text, "") << command;
   }
   EXPECT_EQ(ask("show mac nonzero").text, zel0 + zel1) << "nothing was cleared";
}

TEST_F(CountersCommands, AnInterfaceIsKnownByItsPortOrBySnapshot) {
   const auto lock = Kiln::ActivityLockAnchor::lock();
   agent_->portDel(Pelt::IntfId("Ethernet3"));
   agent_->portAdd(Pelt::IntfId("Vlan7"), "Zel0", 40);
   EXPECT_EQ(ask("show mac intf Ethernet3 nonzero").text,
             "Intf Ethernet3 (456):\n" + block(3, 0).substr(block(3, 0).find('\n') + 1));
   EXPECT_EQ(ask("show mac intf Vlan7").text, "") << "never read";
   EXPECT_EQ(ask("show mac intf Vlan7").error, "");
   EXPECT_EQ(ask("show mac intf Ethernet9").error,
             "unknown interface 'Ethernet9': expected Ethernet1 to Ethernet4 or Vlan7");
}

TEST_F(CountersCommands, AMovedPortIsAskedOfTheChipThatHasItNow) {
   const auto lock = Kiln::ActivityLockAnchor::lock();
   agent_->portDel(Pelt::IntfId("Ethernet3"));
   agent_->portAdd(Pelt::IntfId("Ethernet3"), "Zel0", 40);
   EXPECT_EQ(ask("show mac intf Ethernet3 nonzero").text, "") << "not read there yet";
   EXPECT_EQ(ask("chip Zel1 show mac intf Ethernet3 nonzero").text, "")
        << "what was read there is another port's";
}

TEST_F(CountersCommands, AChipThatIsNotInitializedSaysSo) {
   agent_->countersMgr().zelCounters(0)->initializedIs(false);
   EXPECT_EQ(ask("chip Zel0 show table bogus pipe 9").text, "Agent not initialized yet");
   EXPECT_EQ(ask("show mac nonzero").text, "Chip Zel0:\nAgent not initialized yet\n" + zel1);
   EXPECT_THAT(ask("show info").text,
               testing::StartsWith("Chip Zel0:\nAgent not initialized yet\nChip Zel1:\n="));
   EXPECT_THAT(ask("chip Zel1 show info").text, testing::StartsWith("="));
   EXPECT_EQ(ask("show mac intf Ethernet1").text, "Agent not initialized yet");
   EXPECT_EQ(ask("chip Zel0 clear mac").text, "Agent not initialized yet");
}

TEST_F(CountersCommands, TablesAreAskedOfEveryChipAndPipeThatIsMeant) {
   const auto tables = [this](const String& command) {
      const String text = ask(command).text;
      String found;
      for (std::size_t at = text.find("DevId: "); at != String::npos; at = text.find("DevId: ", at + 1)) {
         found += text.substr(at + 7, text.find('\n', at) - at - 7) + ";";
      }
      return found;
   };
   advance(2.0);
   EXPECT_EQ(tables("show table ingressPortCount n"), "0, PipeId: 0;1, PipeId: 0;");
   EXPECT_EQ(tables("chip Zel1 show table ingressPortCount n"), "1, PipeId: 0;");
   EXPECT_EQ(tables("show table vlanB n"), "0, PipeId: FFFF;1, PipeId: FFFF;");
   EXPECT_EQ(tables("show table ingressPortCount pipe 0 n"), "0, PipeId: 0;1, PipeId: 0;");
   EXPECT_EQ(ask("show table ingressPortCount pipe 1").error, "unknown pipe '1': expected 0 to 0");
   EXPECT_EQ(ask("show table p 0 n").error, "") << "a beginning of an option before that of a name";
   EXPECT_EQ(ask("show table pdp n").error, "");
   EXPECT_EQ(ask("show info x").error, "unexpected 'x' after 'show info': expected json or nothing more");
}

// The first lines of the views in a text, in their order.
std::vector<String> viewsIn(const String& text) {
   const std::vector<String> starts = {"Table: ",  "Intf ",   "Packets by", "  PDP Class",
                                       "Drops by", "MAU and", "Traffic"};
   std::vector<String> found;
   std::istringstream lines(text);
   for (String line; std::getline(lines, line);) {
      for (const String& start : starts) {
         const bool isRepeated = !found.empty() && found.back() == start;
         const std::size_t at = line.find(start);
         if (at != String::npos && line.find_first_not_of(' ') >= at && !isRepeated) {
            found.push_back(start);
         }
      }
   }
   return found;
}

TEST_F(CountersCommands, ShowGoesThroughEverythingChipByChip) {
   const std::vector<String> views = {"Table: ", "Intf ", "Packets by", "  PDP Class", "Drops by", "MAU and"};
   std::vector<String> ofBoth = views;
   ofBoth.insert(ofBoth.end(), views.begin(), views.end());
   advance(2.0);
   EXPECT_EQ(viewsIn(ask("show").text), ofBoth);
   EXPECT_EQ(viewsIn(ask("chip Zel1 show").text), views);
}

TEST_F(CountersCommands, ClearMovesEverythingThatItListsAndNothingElse) {
   agent_->traffic().onIs(true);
   advance(4.0);
   agent_->traffic().onIs(false);
   advance(4.0);
   const String maus = ask("show mau-deparser-drop nonzero").text;
   EXPECT_NE(maus.find("forwarding"), String::npos);
   const std::vector<String> cleared = {"show table nonzero", "show mac nonzero", "show pipeline nonzero",
                                        "show pdp nonzero", "show traffic-manager nonzero"};
   std::vector<std::size_t> before;
   for (const String& command : cleared) {
      before.push_back(ask(command).text.size());
   }
   EXPECT_EQ(ask("clear").text, "");
   for (std::size_t i = 0; i < cleared.size(); ++i) {
      EXPECT_LT(ask(cleared[i]).text.size(), before[i]) << cleared[i];
   }
   EXPECT_EQ(ask("show mau-deparser-drop nonzero").text, maus);
   ask("clear mau-deparser-drop");
   EXPECT_EQ(ask("show mau-deparser-drop nonzero").text.find("forwarding"), String::npos);
}

TEST_F(CountersCommands, AnInterfaceWithoutPdpCountersGetsItsOwnLine) {
   advance(2.0);
   const auto lock = Kiln::ActivityLockAnchor::lock();
   agent_->portDel(Pelt::IntfId("Ethernet4"));
   EXPECT_NE(ask("show pdp intf Ethernet3").text.find("Ethernet3                  default"), String::npos);
   EXPECT_EQ(ask("show pdp intf Ethernet4").text,
             "No PDP counters of interface Ethernet4: its port has none\n");
}

// In a simulation with tracing on, each answer also goes to standard output, whatever printed it.
TEST_F(CountersCommands, AreEchoedInASimulation) {
   const ZelTest::Environment simulation("SIMULATION_VMID", "1");
   start({.chips = 1, .pipes = 1, .ports = 2});
   advance(4.0);
   {
      const auto lock = Kiln::ActivityLockAnchor::lock();
      agent_->portDel(Pelt::IntfId("Ethernet2"));
   }
   String error;
   const std::vector<const char*> commands = {
        "show mac", "show info json", "show pdp intf Ethernet2", "clear table vlanB pipe 0",
        "show mac", "clear mac"};
   for (std::size_t i = 0; i < commands.size(); ++i) {
      agent_->countersMgr().zelCounters(0)->initializedIs(i < 4);
      EXPECT_TRUE(Kiln::traceSettingIs("ZelCounters/8", &error)) << error;
      testing::internal::CaptureStderr(); // takes the trace's own lines
      testing::internal::CaptureStdout();
      const String text = ask(commands[i]).text;
      std::fflush(stdout);
      EXPECT_EQ(testing::internal::GetCapturedStdout(), text) << commands[i];
      EXPECT_NE(text, "") << commands[i];
      testing::internal::GetCapturedStderr();
      EXPECT_TRUE(Kiln::traceSettingIs("ZelCounters/9", &error)) << error;
   }
   EXPECT_EQ(ZelCounter::ZelCounters::echo(), false);
}

TEST_F(CountersCommands, AreCompletedByTheirGrammar) {
   const String stages =
        "port-rx parser ingress ingress-deparser traffic-manager egress egress-deparser port-tx ";
   const std::vector<std::pair<String, String>> cases = {
        {"", "counters log ringlog "},
        {"cou", "counters "},
        {"log ", "json "},
        {"complete", ""},
        {"bogus ", ""},
        {"counters ", "show clear chip "},
        {"counters c", "clear chip "},
        {"counters chip ", "Zel0 Zel1 "},
        {"counters chip Zel1", "Zel1 "},
        {"counters chip Zel1 ", "show clear "},
        {"counters chip Zel9 ", ""},
        {"counters chip Zel0 chip ", ""},
        {"counters show m", "mac mau-deparser-drop "},
        {"counters show mac ", "intf nonzero json "},
        {"counters s mac i ", "Ethernet1 Ethernet2 Ethernet3 Ethernet4 "}, // abbreviated
        {"counters chip Zel1 show mac intf ", "Ethernet3 Ethernet4 "},
        {"counters show mac intf Ethernet1 ", "nonzero json "},
        {"counters show mac intf Ethernet9 ", ""},
        {"counters show mac nonzero ", "json "},
        {"counters show mac json nonzero ", ""},
        {"counters show mac json json ", ""},
        {"counters show m ", ""}, // ambiguous
        {"counters show pipeline stage ", stages},
        {"counters show pipeline stage port-rx p", "pipe "},
        {"counters show pipeline pipe ", "0 "},
        {"counters show pipeline pipe 0 ", "nonzero json "},
        {"counters show pipeline pipe 1 ", ""},
        {"counters show table pdp", "pdpClassCount "},
        {"counters show table pdpClassCount ", "pipe nonzero json "},
        {"counters show table nonzero p", "pipe "},
        {"counters clear table vlanB ", "pipe "},
        {"counters clear mac ", ""},
   };
   for (const auto& [line, words] : cases) {
      String found = completions(line);
      std::replace(found.begin(), found.end(), '\n', ' ');
      EXPECT_EQ(found, words) << line;
   }
}

// Follows completion to every line that it can spell out. The agent may find a line incomplete, but never wrong.
TEST_F(CountersCommands, CompletionOffersOnlyWhatIsTaken) {
   std::vector<String> lines = {"chip Zel0 "};
   for (std::size_t i = 0; i < lines.size(); ++i) {
      const auto lock = Kiln::ActivityLockAnchor::lock();
      const Agent::CommandSpool spool(4096); // may fill up: the answers do not matter here
      const String error = agent_->commandRunner()->run("counters " + lines[i], spool, "the test").error;
      const bool isFull = error.find("the output ends here") == 0;
      const bool isUnfinished = error.find("the command is incomplete") == 0 || error.find("pipe needs") == 0;
      // What readers may not: what is carried out, and clears.
      EXPECT_EQ(agent_->commandRunner()->changes("counters " + lines[i]),
                !isUnfinished && lines[i].find("clear ") != String::npos)
           << lines[i];
      const String next = completions("counters " + lines[i]);
      EXPECT_TRUE(error.empty() || isFull || (isUnfinished && !next.empty())) << lines[i] << error;
      std::istringstream words(next);
      for (String word; words >> word;) {
         lines.push_back(lines[i] + word + " ");
      }
   }
   EXPECT_GT(lines.size(), 500U);
   const auto lock = Kiln::ActivityLockAnchor::lock();
   EXPECT_TRUE(agent_->commandRunner()->changes(" counters\tch Zel0 cl"));
   EXPECT_FALSE(agent_->commandRunner()->changes("ringlog"));
}

} // namespace

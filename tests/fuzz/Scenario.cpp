// A scenario, run twice: once from a stream, once from a descriptor. Both print the same bytes.
#include "agent/CommandSpool.h"
#include "apps/zelagent/ScenarioConsole.h"
#include "apps/zelagent/ScenarioInput.h"
#include "kiln/OperatorLog.h"
#include "kiln/RingLog.h"
#include "tests/fuzz/Fuzz.h"
#include "tests/support/SimulatedTime.h"

#include <sstream>
#include <sys/mman.h>
#include <unistd.h>

using Kiln::String;
using ZelFuzz::must;

namespace {

String textOf(const Agent::CommandSpool& file) {
   String text(file.size(), '\0');
   file.read(0, text.data(), text.size());
   return text;
}

struct Outcome {
   ZelAgent::ScenarioConsole::Status status;
   String out;
   String error;
   bool operator==(const Outcome&) const = default;
};

Outcome outcomeOf(std::istream& scenario) {
   const ZelTest::SimulatedTime time;
   // Those are the process's, and go on from one agent to the next.
   Kiln::OperatorLog::instance().newEntries();
   Kiln::RingLog::instance().lineDelAll();
   ZelAgent::SwitchAgent agent(
        {.chips = 1, .pipes = 1, .ports = 2, .historyMinutes = 0, .tablesAreTemporary = true});
   const Agent::CommandSpool out;
   const Agent::CommandSpool error;
   const auto status = ZelAgent::ScenarioConsole(agent, out.fd(), error.fd(), -1).run(scenario, "scenario");
   return {status, textOf(out), textOf(error)};
}

// What would take hours, what opens files of this machine, and what is to end in an assertion: reads of the hardware that
// fail.
bool isLeftOut(const String& scenario) {
   std::istringstream lines(scenario);
   for (String line; std::getline(lines, line);) {
      const std::vector<String> words = Agent::splitWords(line);
      constexpr std::size_t longestTime = 1; // digits
      if (!words.empty() && (words[0] == "replay" || words[0] == "sdk" || words[0] == "polling" ||
                             (words[0] == "advance" && words.size() > 1 && words[1].size() > longestTime))) {
         return true;
      }
   }
   return false;
}

} // namespace

int LLVMFuzzerTestOneInput(const U8* data, std::size_t size) {
   using Console = ZelAgent::ScenarioConsole;
   const String text(ZelFuzz::textOf(data, size));
   if (isLeftOut(text)) {
      return 0;
   }
   std::istringstream whole(text);
   const Outcome first = outcomeOf(whole);
   const Kiln::OwnedFd file(memfd_create("scenario", MFD_CLOEXEC));
   must(pwrite(file.fd(), text.data(), size, 0) == static_cast<ssize_t>(size),
        "there is memory for the file");
   ZelAgent::ScenarioInput input(file.fd(), -1);
   std::istream pieces(&input);
   must(outcomeOf(pieces) == first, "the same scenario prints the same bytes, however it comes");

   must((first.status == Console::passed) == first.error.empty(), "there is an error if it did not pass");
   must(Kiln::printableText(first.error) == first.error, "errors are printable");
   must(first.status == Console::badStatement ? first.error.find("scenario:") != String::npos
                                              : first.error.empty() || first.error.starts_with("% "),
        "errors say where they are");
   return 0;
}

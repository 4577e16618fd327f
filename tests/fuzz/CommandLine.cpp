// A command line, as the agent's channel runs it.
#include "agent/CommandRunner.h"
#include "apps/zelagent/SwitchAgent.h"
#include "apps/zelctl/views/JsonReader.h"
#include "kiln/ActivityLock.h"
#include "kiln/Choices.h"
#include "tests/fuzz/Fuzz.h"
#include "tests/support/SimulatedTime.h"

#include <nlohmann/json.hpp>

using Kiln::String;
using ZelFuzz::must;

namespace {

struct World {
   World() {
      const auto lock = Kiln::ActivityLockAnchor::lock();
      agent.traffic().onIs(true);
      ZelTest::SimulatedTime::advance(4.0);
   }
   const ZelTest::SimulatedTime time;
   ZelAgent::SwitchAgent agent{{.chips = 2, .pipes = 1, .ports = 2, .tablesAreTemporary = true}};
};

World& world() {
   static World* const one = new World; // until the process ends
   return *one;
}

struct Asked {
   String text;
   String error;
};

Asked run(const String& line) {
   const Agent::CommandSpool spool;
   const Agent::CommandResult result = world().agent.commandRunner()->run(line, spool, "the fuzzer");
   String text(spool.size(), '\0');
   spool.read(0, text.data(), text.size());
   return {text, result.error};
}

void checkAnswer(const Asked& asked) {
   constexpr std::size_t longestRefusal = 1000;
   must(asked.error.size() < longestRefusal, "a refusal is short");
   must(Kiln::printable(asked.error) == asked.error, "a refusal is one printable line");
   must(asked.error.empty() || asked.text.empty(), "a refusal comes before any output");
   must(Kiln::printableText(asked.text) == asked.text, "output is text");
   if (asked.error.empty() && asked.text.starts_with('{')) {
      must(ZelFuzz::isTaken<std::runtime_error>([&] { ZelCtl::readJson(asked.text); }),
           "the client can read the agent's JSON");
   }
}

} // namespace

int LLVMFuzzerTestOneInput(const U8* data, std::size_t size) {
   const String line(ZelFuzz::textOf(data, size));
   world();
   const auto lock = Kiln::ActivityLockAnchor::lock();
   const std::vector<String> words = Agent::splitWords(line);
   must(Agent::splitWords(Kiln::joined(words, " ")) == words, "words hold no blanks");
   const bool changes = world().agent.commandRunner()->changes(line);
   const Asked asked = run(line);
   checkAnswer(asked);
   must(asked.error.empty() || !changes, "what is refused would change nothing");
   if (words.empty() || words.front() == "complete") {
      return 0;
   }
   const Asked offered = run("complete " + line);
   checkAnswer(offered);
   // A word that is offered is taken: the line with it may still lack words, but not be wrong.
   const std::size_t end = offered.text.find('\n');
   if (end != String::npos) {
      const std::size_t lastBlank = line.find_last_of(" \t\n\v\f\r");
      const String before = lastBlank == String::npos ? "" : line.substr(0, lastBlank + 1);
      const String error = run(before + offered.text.substr(0, end)).error;
      must(!error.starts_with("unexpected"), "a word that is offered is taken");
   }
   return 0;
}

// The scenario console: runs statements, line by line, against an agent in simulated time. A scenario and its
// seed give the same bytes every time.
#pragma once

#include "apps/zelagent/SwitchAgent.h"
#include "kiln/TextOutput.h"

#include <istream>

namespace ZelAgent {

class ScenarioConsole {
 public:
   // Exit statuses. A refused command lets the scenario go on; a bad statement stops it.
   enum Status { passed = 0, commandRefused = 1, badStatement = 2 };

   // Statements print to outFd, what went wrong to errorFd; neither is owned. The agent outlives the console.
   ScenarioConsole(SwitchAgent& agent, int outFd, int errorFd);

   // `name` stands for the scenario in errors: "NAME:LINE: message". Not under the activity lock. An output that
   // can't be written is a std::runtime_error at once; a reader that has gone is none. A stop of the activity manager
   // ends it after the statement that is running.
   Status run(std::istream& scenario, const Kiln::String& name);

   // One line a statement, for --help.
   static Kiln::String statementsHelp();

 private:
   using Words = std::vector<Kiln::String>;
   struct Statement;

   // Throws what is wrong with the line.
   void runLine(const Kiln::String& line);
   // True at the end of the scenario.
   bool runNextLine(std::istream& scenario);
   void flushOutput();

   void advance(const Words& operands);
   void counters(const Words& operands);
   void setRmon(const Words& operands);
   void flipRmon(const Words& operands);
   void replay(const Words& operands);
   void traffic(const Words& operands);
   void polling(const Words& operands);
   void setTable(const Words& operands);
   void capacity(const Words& operands);
   void addL3(const Words& operands);
   void deleteL3(const Words& operands);
   void addSvi(const Words& operands);
   void vni(const Words& operands);
   void snat(const Words& operands);
   void accessVlan(const Words& operands);
   void allowVlan(const Words& operands);
   void mtu(const Words& operands);
   void flood(const Words& operands);
   void failSdk(const Words& operands);
   void costSdk(const Words& operands);
   void completion(const Words& operands);
   void lateCompletion(const Words& operands);
   void addChip(const Words& operands);
   void deleteChip(const Words& operands);
   void chipState(const Words& operands);
   void setQueue(const Words& operands);
   void interface(const Words& operands);
   void queues(const Words& operands);
   void nat(const Words& operands);
   void clear(const Words& operands);
   void addPort(const Words& operands);
   void deletePort(const Words& operands);
   void log(const Words& operands);
   void ringLog(const Words& operands);

   void refuseCommand(const Kiln::String& problem);
   template <class Record>
   bool printRecord(const Kiln::String& name, const char* table, const char* clearTable,
                    bool isAlwaysCleared);

   SwitchAgent& agent_;
   Kiln::TextOutput out_; // flushed after each line
   int errorFd_;
   bool anyRefused_ = false;

   static const Statement statements[];
};

} // namespace ZelAgent

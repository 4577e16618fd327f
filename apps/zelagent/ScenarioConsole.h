// The scenario console: runs statements, line by line, on an agent in simulated or real time. In simulated time, the
// same scenario and seed print the same bytes every time.
#pragma once

#include "apps/zelagent/SwitchAgent.h"
#include "kiln/TextOutput.h"

#include <istream>

namespace ZelAgent {

class ScenarioConsole {
 public:
   // Exit statuses. After a refused command the scenario goes on; an invalid statement stops it.
   enum Status { passed = 0, commandRefused = 1, badStatement = 2 };

   // Statements print to outFd, errors go to errorFd. Their readers are waited for until endFd is readable. No descriptor
   // is owned. The agent outlives the console.
   ScenarioConsole(SwitchAgent& agent, int outFd, int errorFd, int endFd);

   // `name` is the scenario's in errors: "NAME:LINE: message". Not under the activity lock. Stopping the activity
   // manager ends it after the statement that is running. Throws std::runtime_error if the output cannot be written; a
   // reader that has closed its pipe, or is no longer waited for, is not an error.
   Status run(std::istream& scenario, const Kiln::String& name);

   // One line per statement, for --help.
   static Kiln::String statementsHelp();

 private:
   using Words = std::vector<Kiln::String>;
   struct Statement;

   // Throws std::invalid_argument if the line is not a valid statement.
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
   void restartChip(const Words& operands);
   void chipState(const Words& operands);
   void setQueue(const Words& operands);
   void interface(const Words& operands);
   void queues(const Words& operands);
   void nat(const Words& operands);
   void clear(const Words& operands);
   void addPort(const Words& operands);
   void movePort(const Words& operands);
   void deletePort(const Words& operands);
   void speed(const Words& operands);
   void lock(const Words& operands);
   void log(const Words& operands);
   void ringLog(const Words& operands);

   void print(std::string_view text);
   void printError(const Kiln::String& line);
   void refuseCommand(const Kiln::String& problem);
   template <class Record>
   bool printRecord(const Kiln::String& name, const char* table, const char* clearTable,
                    bool isAlwaysCleared);

   SwitchAgent& agent_;
   Kiln::TextOutput out_; // flushed after each line
   Kiln::TextOutput error_;
   bool anyRefused_ = false;
   bool hasAdvanced_ = false;

   static const Statement statements[];
};

} // namespace ZelAgent

// The statements of a scenario.
#include "apps/zelagent/ScenarioConsole.h"

#include "agent/CommandOrigin.h"
#include "agent/CommandSocket.h"
#include "agent/CommandSpool.h"
#include "agent/LogCommand.h"
#include "apps/zelagent/StatementForm.h"
#include "counters/cli/HealthView.h"
#include "kiln/ActivityLock.h"
#include "kiln/ActivityManager.h"
#include "kiln/Choices.h"
#include "kiln/Numbers.h"
#include "kiln/OperatorLog.h"
#include "kiln/RingLog.h"
#include "kiln/Utf8.h"
#include "silo/TableReader.h"
#include "vex/RecordText.h"
#include "vex/VexSubIntfCountersSm.h"
#include "zel/VlanId.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cmath>
#include <cstring>
#include <stdexcept>
#include <utility>

namespace ZelAgent {

// `run` gets the operands of the form.
struct ScenarioConsole::Statement {
   std::string_view form;
   std::string_view help;
   void (ScenarioConsole::*run)(const Words& operands);
};

const ScenarioConsole::Statement ScenarioConsole::statements[] = {
     {"advance SECONDS", "time passes; every clock and completion due fires in order",
      &ScenarioConsole::advance},
     {"counters ...", "a diagnostic command, as over the channel", &ScenarioConsole::counters},
     {"rmon INTF INDEX flip BIT", "flips a bit of a raw hardware RMON counter", &ScenarioConsole::flipRmon},
     {"rmon INTF INDEX VALUE", "sets a raw hardware RMON counter", &ScenarioConsole::setRmon},
     {"replay INTF FILE", "a capture's frames arrive on the interface, at once", &ScenarioConsole::replay},
     {"traffic on|off", "synthetic traffic, seeded", &ScenarioConsole::traffic},
     {"polling SECONDS", "sets the time between polling passes, from the next pass on",
      &ScenarioConsole::polling},
     {"table CHIP COUNTER PIPE INDEX PACKETS BYTES",
      "sets an entry of a counter table; PIPE is all where it is not per pipe", &ScenarioConsole::setTable},
     {"capacity CHIP TABLE N", "sets how many entries a match table can hold", &ScenarioConsole::capacity},
     {"l3 add INTF VLAN", "the interface becomes an L3 interface, carried by the VLAN",
      &ScenarioConsole::addL3},
     {"l3 delete INTF", "the interface is no longer an L3 interface", &ScenarioConsole::deleteL3},
     {"svi CHIP VLAN ingress|egress DECAP SNAT PACKETS BYTES",
      "adds to a programmed VLAN count entry; DECAP and SNAT are 0 or 1", &ScenarioConsole::addSvi},
     {"vni VNI VLAN", "sets the VLAN of a VXLAN network, on every chip", &ScenarioConsole::vni},
     {"snat PREFIX", "source NAT for packets from a prefix, such as 10.1.0.0/16, on every chip",
      &ScenarioConsole::snat},
     {"access INTF VLAN", "sets the VLAN of the port's untagged frames", &ScenarioConsole::accessVlan},
     {"queue INTF QUEUE PACKETS BYTES DROPS", "sets a queue's raw hardware counts",
      &ScenarioConsole::setQueue},
     {"vlan INTF VLAN allow|deny", "sets whether the port takes and sends frames of the VLAN",
      &ScenarioConsole::allowVlan},
     {"mtu INTF OCTETS", "sets the length of the longest frame that the port sends, FCS included",
      &ScenarioConsole::mtu},
     {"flood INTF on|off", "sets whether the port's frames for unknown stations go to all others",
      &ScenarioConsole::flood},
     {"sdk completion inline|deferred|lost", "how accepted requests complete from here on",
      &ScenarioConsole::completion},
     {"sdk completion late SECONDS", "they complete that much later", &ScenarioConsole::lateCompletion},
     {"sdk ENTRY-POINT fail STATUS [TIMES]", "its next calls return STATUS", &ScenarioConsole::failSdk},
     {"sdk ENTRY-POINT takes SECONDS", "each of its calls takes that much time", &ScenarioConsole::costSdk},
     {"chip add NAME", "the chip comes up, with its front-panel ports", &ScenarioConsole::addChip},
     {"chip delete NAME", "the chip goes away, with its ports", &ScenarioConsole::deleteChip},
     {"chip restart NAME keep|reset", "its driver begins anew; the hardware's counters stay, or begin at 0",
      &ScenarioConsole::restartChip},
     {"chip state NAME N", "sets the state in the chip's status, 8 for up", &ScenarioConsole::chipState},
     {"port add INTF CHIP DEVICE-PORT", "gives an interface the port pipe x 128 + slot",
      &ScenarioConsole::addPort},
     {"port move INTF CHIP DEVICE-PORT", "gives it another port in place of its own",
      &ScenarioConsole::movePort},
     {"port delete INTF", "the interface's port goes away", &ScenarioConsole::deletePort},
     {"speed INTF GBPS", "sets the speed of the interface's port, in Gbit/s", &ScenarioConsole::speed},
     {"interface INTF", "prints the interface's published record", &ScenarioConsole::interface},
     {"queues INTF", "prints its queues' published record", &ScenarioConsole::queues},
     {"nat INTF", "prints its source-NAT record", &ScenarioConsole::nat},
     {"clear INTF", "published counts since the last clear restart at 0; INTF may be all",
      &ScenarioConsole::clear},
     {"lock", "prints how long the activity lock was held, on the machine's clock", &ScenarioConsole::lock},
     {"log", "prints the operator log since the last log", &ScenarioConsole::log},
     {"ringlog", "prints the ring log", &ScenarioConsole::ringLog},
};

namespace {

using Words = std::vector<Kiln::String>;

constexpr const char* consoleName = "the console"; // as who gave a command

// More would run for days and is taken for a typing error.
constexpr double longestAdvance = 1e6; // seconds

[[noreturn]] void refuse(std::string_view operand, const Kiln::String& word, std::string_view expected) {
   throw std::invalid_argument(Kiln::String(operand) + " '" + word + "': expected " + Kiln::String(expected));
}

double seconds(const Kiln::String& word) {
   const auto value = Kiln::parseDecimal(word, longestAdvance);
   if (!value) {
      refuse("SECONDS", word, "a time from 0 to 1000000, as 2 or 0.5");
   }
   return *value;
}

template <class T>
T number(std::string_view operand, const Kiln::String& word, T min, T max) {
   const auto value = Kiln::parseNumber<T>(word, min, max);
   if (!value) {
      refuse(operand, word, "a number from " + std::to_string(min) + " to " + std::to_string(max));
   }
   return *value;
}

unsigned rmonIndex(const Kiln::String& word) {
   return number<unsigned>("INDEX", word, 0, BF_NUM_RMON_COUNTERS - 1);
}

U64 counterValue(std::string_view operand, const Kiln::String& word) {
   const auto value = Kiln::parseValue(word);
   if (!value) {
      refuse(operand, word, "a 64-bit number, decimal or 0x and hexadecimal");
   }
   return *value;
}

U16 vlanNumber(const Kiln::String& word) {
   return number<U16>("VLAN", word, Bridging::VlanId::min, Bridging::VlanId::max);
}

U16 devicePortNumber(const Kiln::String& word) {
   return number<U16>("DEVICE-PORT", word, 0, ZelId::PortIndex::invalid - 1);
}

// False at the end. Bounded, since the scenario may turn out to be any file.
bool readLine(std::istream& scenario, Kiln::String* line) {
   char bytes[Agent::commandLineLimit];
   scenario.getline(bytes, sizeof bytes);
   const auto length = static_cast<std::size_t>(scenario.gcount());
   if (scenario.bad()) {
      throw std::runtime_error("the scenario cannot be read: expected a text file");
   }
   if (scenario.fail()) {
      // getline fails at the end, having read nothing, and if the line is too long.
      if (length == 0) {
         return false;
      }
      throw std::invalid_argument("the line is longer than " + std::to_string(Agent::commandLineLimit - 1) +
                                  " bytes: expected one statement");
   }
   line->assign(bytes, scenario.eof() ? length : length - 1); // without the newline
   if (line->find('\0') != Kiln::String::npos) {
      throw std::invalid_argument("the line holds a NUL byte: expected text");
   }
   return true;
}

} // namespace

ScenarioConsole::ScenarioConsole(SwitchAgent& agent, int outFd, int errorFd, int endFd)
     : agent_(agent), out_(outFd), error_(errorFd) {
   out_.endFdIs(endFd);
   error_.endFdIs(endFd);
}

// Names of a scenario may hold anything, and it may be somebody else's.
void ScenarioConsole::print(std::string_view text) {
   out_.write(Kiln::printableText(text));
}

void ScenarioConsole::printError(const Kiln::String& line) {
   out_.flush(); // what was printed before the error, in case both go to one terminal
   error_.write(Kiln::printable(line) + "\n");
   error_.flush();
}

Kiln::String ScenarioConsole::statementsHelp() {
   constexpr std::size_t column = 48;
   Kiln::String text;
   for (const Statement& statement : statements) {
      Kiln::String left(statement.form);
      left.resize(std::max(column, left.size() + 2), ' ');
      text += "   " + left + Kiln::String(statement.help) + "\n";
   }
   return text;
}

ScenarioConsole::Status ScenarioConsole::run(std::istream& scenario, const Kiln::String& name) {
   for (unsigned number = 1;; ++number) {
      try {
         if (runNextLine(scenario)) {
            return anyRefused_ ? commandRefused : passed;
         }
      } catch (const std::exception& error) {
         printError(name + ":" + std::to_string(number) + ": " + error.what());
         return badStatement;
      }
      flushOutput();
   }
}

bool ScenarioConsole::runNextLine(std::istream& scenario) {
   Kiln::String line;
   // Stopped while waiting: a line that the stop cut short is not a statement.
   if (!readLine(scenario, &line) || Kiln::ActivityManager::instance()->isStopping()) {
      return true;
   }
   runLine(line);
   return false;
}

void ScenarioConsole::flushOutput() {
   out_.flush();
   if (!out_.ok() && out_.error() != EPIPE && out_.error() != ECANCELED) {
      throw std::runtime_error(Kiln::String("cannot write the output: ") + std::strerror(out_.error()));
   }
}

void ScenarioConsole::runLine(const Kiln::String& line) {
   Words words = Agent::splitWords(line);
   // A # within a word belongs to the word.
   words.erase(std::find_if(words.begin(), words.end(), [](const auto& word) { return word[0] == '#'; }),
               words.end());
   if (words.empty()) {
      return;
   }
   const auto lock = Kiln::ActivityLockAnchor::lock();
   Words forms;
   for (const Statement& statement : statements) {
      if (const auto operands = operandsOf(statement.form, words)) {
         (this->*statement.run)(*operands);
         return;
      }
      if (statement.form.substr(0, statement.form.find(' ')) == words.front()) {
         forms.emplace_back(statement.form);
      }
   }
   if (!forms.empty()) {
      throw std::invalid_argument("bad operands: expected " + Kiln::joined(forms, ", or "));
   }
   throw std::invalid_argument("unknown statement '" + words.front() + "': 'zelagent --help' lists them all");
}

void ScenarioConsole::advance(const Words& operands) {
   const double time = seconds(operands[0]);
   // What was added before time passed is what the agent begins with. Tables that are kept may hold more.
   if (!std::exchange(hasAdvanced_, true)) {
      agent_.countersMgr().forgetAbsentInterfaces();
   }
   // Not under the statement's hold: in real time the loop gives the lock up to sleep, and others get in.
   Kiln::ActivityLockAnchor::yieldWhile([&] { Kiln::ActivityManager::instance()->advance(time); });
}

void ScenarioConsole::counters(const Words& operands) {
   // The spool of the channel, so that a scenario prints what a client would get, with the same bound.
   const Agent::CommandSpool spool;
   const Agent::CommandResult result =
        agent_.commandRunner()->run("counters " + Kiln::joined(operands, " "), spool, consoleName);
   Kiln::String text(spool.size(), '\0');
   spool.read(0, text.data(), text.size());
   print(text);
   if (!result.ok()) {
      refuseCommand(result.error);
   }
}

void ScenarioConsole::refuseCommand(const Kiln::String& problem) {
   anyRefused_ = true;
   printError("% " + problem);
}

void ScenarioConsole::setRmon(const Words& operands) {
   const SwitchAgent::Port port = agent_.portOf(operands[0]);
   port.chip.rmonIs(port.devicePort, rmonIndex(operands[1]), counterValue("VALUE", operands[2]));
}

void ScenarioConsole::flipRmon(const Words& operands) {
   const SwitchAgent::Port port = agent_.portOf(operands[0]);
   port.chip.rmonFlip(port.devicePort, rmonIndex(operands[1]), number<unsigned>("BIT", operands[2], 0, 63));
}

void ScenarioConsole::replay(const Words& operands) {
   const SwitchAgent::Port port = agent_.portOf(operands[0]);
   SoftChip::Traffic::replay(port.chip, port.devicePort, operands[1]);
}

void ScenarioConsole::traffic(const Words& operands) {
   agent_.traffic().onIs(operands[0] == "on");
}

void ScenarioConsole::polling(const Words& operands) {
   const auto interval = Kiln::parseDecimal(operands[0], longestPollingInterval);
   if (!interval || *interval < shortestPollingInterval) {
      refuse("SECONDS", operands[0], "a time from 0.001 to 1000000, as 2 or 0.5");
   }
   agent_.countersMgr().sdkPollingIntervalIs(*interval);
}

void ScenarioConsole::setTable(const Words& operands) {
   const U16 pipe =
        operands[2] == "all" ? SoftChip::allPipes : number<U16>("PIPE", operands[2], 0, ZlPort::maxPipes - 1);
   const SoftChip::CounterValue value{counterValue("PACKETS", operands[4]),
                                      counterValue("BYTES", operands[5])};
   agent_.chipNamed(operands[0])
        .tableEntryIs(operands[1], pipe, number<U32>("INDEX", operands[3], 0, UINT_MAX), value);
}

void ScenarioConsole::capacity(const Words& operands) {
   agent_.chipNamed(operands[0]).capacityIs(operands[1], number<U32>("N", operands[2], 0, UINT_MAX));
}

void ScenarioConsole::addL3(const Words& operands) {
   agent_.l3Add(Pelt::IntfId(Kiln::Name(operands[0])), Bridging::VlanId(vlanNumber(operands[1])));
}

void ScenarioConsole::deleteL3(const Words& operands) {
   agent_.l3Del(Pelt::IntfId(Kiln::Name(operands[0])));
}

void ScenarioConsole::addSvi(const Words& operands) {
   const SoftChip::L2Domain domain{vlanNumber(operands[1]), number<U8>("DECAP", operands[3], 0, 1),
                                   number<unsigned>("SNAT", operands[4], 0, 1) != 0};
   agent_.chipNamed(operands[0])
        .l2DomainCountAdd(operands[2] == "ingress", domain,
                          {counterValue("PACKETS", operands[5]), counterValue("BYTES", operands[6])});
}

void ScenarioConsole::vni(const Words& operands) {
   constexpr U32 highestVni = (1U << 24) - 1;
   agent_.vniIs(number<U32>("VNI", operands[0], 0, highestVni), Bridging::VlanId(vlanNumber(operands[1])));
}

void ScenarioConsole::snat(const Words& operands) {
   agent_.snatAdd(operands[0]);
}

void ScenarioConsole::accessVlan(const Words& operands) {
   const SwitchAgent::Port port = agent_.portOf(operands[0]);
   port.chip.accessVlanIs(port.devicePort, vlanNumber(operands[1]));
}

void ScenarioConsole::allowVlan(const Words& operands) {
   const SwitchAgent::Port port = agent_.portOf(operands[0]);
   port.chip.vlanAllowedIs(port.devicePort, vlanNumber(operands[1]), operands[2] == "allow");
}

void ScenarioConsole::mtu(const Words& operands) {
   const SwitchAgent::Port port = agent_.portOf(operands[0]);
   port.chip.mtuIs(port.devicePort, number<U32>("OCTETS", operands[1], 64, UINT_MAX));
}

void ScenarioConsole::flood(const Words& operands) {
   const SwitchAgent::Port port = agent_.portOf(operands[0]);
   port.chip.floodsIs(port.devicePort, operands[1] == "on");
}

void ScenarioConsole::failSdk(const Words& operands) {
   const int status = number<int>("STATUS", operands[1], INT_MIN, INT_MAX);
   const U32 times = operands.size() > 2 ? number<U32>("TIMES", operands[2], 1, UINT_MAX) : 1;
   agent_.fleet().faults().failNext(operands[0], status, times);
}

void ScenarioConsole::costSdk(const Words& operands) {
   agent_.fleet().faults().costIs(operands[0], seconds(operands[1]));
}

void ScenarioConsole::completion(const Words& operands) {
   using Kind = SoftChip::CompletionMode::Kind;
   const Kind kind = operands[0] == "inline"     ? Kind::inlined
                     : operands[0] == "deferred" ? Kind::deferred
                                                 : Kind::lost;
   agent_.fleet().completions().modeIs({kind, 0.0, 1});
}

void ScenarioConsole::lateCompletion(const Words& operands) {
   agent_.fleet().completions().modeIs({SoftChip::CompletionMode::Kind::late, seconds(operands[0]), 1});
}

void ScenarioConsole::addChip(const Words& operands) {
   agent_.chipAdd(operands[0]);
}

void ScenarioConsole::deleteChip(const Words& operands) {
   agent_.chipDel(operands[0]);
}

void ScenarioConsole::restartChip(const Words& operands) {
   agent_.chipRestart(operands[0], operands[1] == "keep");
}

void ScenarioConsole::chipState(const Words& operands) {
   agent_.chipStateIs(operands[0], number<U32>("N", operands[1], 0, UINT_MAX));
}

void ScenarioConsole::addPort(const Words& operands) {
   agent_.portAdd(Pelt::IntfId(Kiln::Name(operands[0])), operands[1], devicePortNumber(operands[2]));
}

void ScenarioConsole::movePort(const Words& operands) {
   agent_.portMove(Pelt::IntfId(Kiln::Name(operands[0])), operands[1], devicePortNumber(operands[2]));
}

void ScenarioConsole::speed(const Words& operands) {
   constexpr double slowest = 0.001;
   constexpr double fastest = 10000;
   constexpr double bitsPerGbit = 1e9;
   const auto gbits = Kiln::parseDecimal(operands[1], fastest);
   if (!gbits || *gbits < slowest) {
      refuse("GBPS", operands[1], "a speed from 0.001 to 10000 Gbit/s, as 100 or 2.5");
   }
   agent_.portSpeedIs(Pelt::IntfId(Kiln::Name(operands[0])),
                      static_cast<U64>(std::llround(*gbits * bitsPerGbit)));
}

void ScenarioConsole::deletePort(const Words& operands) {
   agent_.portDel(Pelt::IntfId(Kiln::Name(operands[0])));
}

// Prints the record as another process reads it, hence through a reader. False: no such record.
template <class Record>
bool ScenarioConsole::printRecord(const Kiln::String& name, const char* table, const char* clearTable,
                                  bool isAlwaysCleared) {
   using Reader = Silo::TableReader<Record>;
   const Silo::Key key(name);
   Silo::Sample<Record> sample;
   const Silo::ReadResult result = Reader(agent_.tableStore(), table).read(key, sample);
   if (result == Silo::ReadResult::absent) {
      return false;
   }
   if (result != Silo::ReadResult::ok) {
      refuseCommand("the record of " + name + ": " + Silo::text(result));
      return true;
   }
   std::optional<Vex::RecordText> cleared;
   Silo::Sample<Record> clearSample;
   const bool isCleared =
        clearTable != nullptr &&
        Reader(agent_.tableStore(), clearTable).read(key, clearSample) == Silo::ReadResult::ok;
   if (isCleared || isAlwaysCleared) {
      cleared = Vex::textOf(clearSample.record);
   }
   print(Vex::linesOf(Vex::textOf(sample.record), sample.info, cleared ? &*cleared : nullptr));
   return true;
}

void ScenarioConsole::interface(const Words& operands) {
   namespace Tables = Silo::Interface;
   namespace Names = Tables::TableName;
   const Kiln::String& intf = operands[0];
   if (!printRecord<Tables::IntfCounters>(intf, Names::intfCounters, Names::intfClearCounters, false) &&
       !printRecord<Tables::L3IntfCounters>(intf, Names::vlanIntfCounters, Names::vlanIntfClearCounters,
                                            false) &&
       !printRecord<Tables::L3IntfCounters>(intf, Names::subIntfCounters, Names::subIntfClearCounters,
                                            false)) {
      refuseCommand("no counters of " + Kiln::quoted(intf) + " are published");
   }
}

void ScenarioConsole::queues(const Words& operands) {
   namespace Tables = Silo::Interface;
   if (!printRecord<Tables::IntfQueueCounters>(operands[0], Tables::TableName::intfQueueCounters,
                                               Tables::TableName::intfClearQueueCounters, true)) {
      refuseCommand("no queues of " + Kiln::quoted(operands[0]) + " are published");
   }
}

void ScenarioConsole::nat(const Words& operands) {
   namespace Tables = Silo::Interface;
   if (!printRecord<Tables::NatCounter>(operands[0], Tables::TableName::intfNatCounters, nullptr, false)) {
      refuseCommand("no source-NAT counters of " + Kiln::quoted(operands[0]) + " are published");
   }
}

void ScenarioConsole::clear(const Words& operands) {
   const Agent::CommandOriginScope origin(consoleName);
   // One reactor has ports and VLAN interfaces, the other has subinterfaces; `all` concerns both.
   const bool cleared = agent_.countersMgr().vexCountersSm()->clear(operands[0]);
   const bool subIntfCleared = agent_.countersMgr().vexSubIntfCountersSm()->clear(operands[0]);
   if (!cleared && !subIntfCleared) {
      throw std::invalid_argument("unknown interface '" + operands[0] +
                                  "': expected all, or one whose counters are published");
   }
}

void ScenarioConsole::setQueue(const Words& operands) {
   const SwitchAgent::Port port = agent_.portOf(operands[0]);
   port.chip.queueIs(port.devicePort, number<unsigned>("QUEUE", operands[1], 0, 31),
                     {counterValue("PACKETS", operands[2]), counterValue("BYTES", operands[3])},
                     counterValue("DROPS", operands[4]));
}

void ScenarioConsole::lock(const Words& /*operands*/) {
   for (const Kiln::String& line : ZelCounter::activityLockLines()) {
      out_.write(line + "\n");
   }
}

void ScenarioConsole::log(const Words& /*operands*/) {
   for (const Kiln::OperatorLog::Entry& entry : Kiln::OperatorLog::instance().newEntries()) {
      out_.print("%.6f %s\n", entry.time, Kiln::printable(Agent::logText(entry)).c_str());
   }
}

void ScenarioConsole::ringLog(const Words& /*operands*/) {
   for (const Kiln::String& line : Kiln::RingLog::instance().lines()) {
      out_.write(Kiln::printable(line) + "\n");
   }
}

} // namespace ZelAgent

// The agent without its surroundings: system status, chips with their ports, counters manager and commands, wired
// together. The program, the scenario console and tests are built on it.
#pragma once

#include "agent/CommandRunner.h"
#include "counters/ZelCountersMgr.h"
#include "kiln/Timer.h"
#include "softchip/SoftChip.h"
#include "zel/VlanId.h"

#include <memory>
#include <optional>

namespace ZelAgent {

constexpr unsigned maxChips = ZelId::maxDevices;
// From the end of one polling pass to the start of the next, in seconds. A shorter pause would leave no time for
// anything but polling.
constexpr double shortestPollingInterval = 1e-3;
constexpr double longestPollingInterval = 1e6;
constexpr double longestHistory = 1440; // minutes

struct SwitchAgentConfig {
   unsigned chips = 1;
   unsigned pipes = 2;  // of each chip
   unsigned ports = 32; // front-panel ports of each chip, spread over its pipes
   ZelSystem::ChipCapabilities capabilities{true, true, true, true};
   U64 seed = 1;                    // of the synthetic traffic
   double pollingInterval = 2.0;    // seconds, from the first pass on
   double historyMinutes = 15;      // 0: no history is kept
   Kiln::String siloFolder{};       // where shared tables live; empty for this user's in shared memory
   bool tablesAreTemporary = false; // without a folder: only this process can open them then
   Kiln::String hardwareFile{};     // where hardware counters live; empty for the process's own memory
};

// One at a time in a process, on the activity manager and time source that are in place. Every call needs the activity
// lock, except the constructor, which takes it, and the destructor, which must not be called under it: it waits for
// what the SDK still has to deliver.
//
// A chip is ZelN with device id N. It comes up with its front-panel ports, EthernetM numbered across chips, and serves
// the internal interface Internal(N+1), which has no port until one is added.
class SwitchAgent {
 public:
   // Throws std::invalid_argument or std::runtime_error, naming what was expected, for a configuration that is not
   // possible.
   explicit SwitchAgent(const SwitchAgentConfig& config);
   SwitchAgent(const SwitchAgent&) = delete;
   SwitchAgent& operator=(const SwitchAgent&) = delete;
   ~SwitchAgent();

   // The start went well: what it created stays when the agent ends. Otherwise tables, their folder and the hardware
   // file go with the agent, unless they were there before.
   void createdIsKept();

   ZelCounter::ZelCountersMgr& countersMgr() { return *mgr_; }
   const ZelSystem::SystemStatus& systemStatus() const { return *systemStatus_; }
   SoftChip::Fleet& fleet() { return *fleet_; }
   SoftChip::Traffic& traffic() { return *traffic_; }
   const Kiln::Ptr<Agent::CommandRunner>& commandRunner() const { return commandRunner_; }

   // Brings up a chip with its ports; a chip of that name is deleted first. Throws std::invalid_argument for a name
   // other than Zel0 to Zel7.
   void chipAdd(Kiln::String name);
   // Deletes the chip, its hardware and its ports. Does nothing for an unknown name.
   void chipDel(Kiln::String name);
   // The chip comes up again in place, as after a restart of its driver: ports and interfaces stay, the entries of its
   // match tables are gone, and the hardware's counters are kept or begin at 0. Throws std::invalid_argument for an
   // unknown name.
   void chipRestart(const Kiln::String& name, bool keepsCounters);
   // Throws std::invalid_argument for an unknown name.
   void chipStateIs(const Kiln::String& name, U32 state);

   // Throws std::invalid_argument for an unknown name.
   SoftChip::Chip& chipNamed(const Kiln::String& name) const;

   // Gives an interface a port of a chip. Throws std::invalid_argument for a port that does not exist or is taken.
   void portAdd(const Pelt::IntfId& intf, const Kiln::String& chipName, U16 devicePort);
   // Throws std::invalid_argument for an interface without a port.
   void portDel(const Pelt::IntfId& intf);
   // Gives an interface another port instead of its own, on any chip; the interface stays all the while. Throws
   // std::invalid_argument for an interface without a port, and as portAdd does.
   void portMove(const Pelt::IntfId& intf, const Kiln::String& chipName, U16 devicePort);
   // The speed of an interface's port in bit/s, if known. A new port has the soft chip's. Throws std::invalid_argument
   // for an interface without a port.
   void portSpeedIs(const Pelt::IntfId& intf, std::optional<U64> speed);

   // Adds an interface to the L3 interface table, carried by the VLAN; VlanN and EthernetN.M also enter their status
   // directory. Throws std::invalid_argument if the table has it already.
   void l3Add(const Pelt::IntfId& intf, Bridging::VlanId vlan);
   // Removes it again. Throws std::invalid_argument if the table does not have it.
   void l3Del(const Pelt::IntfId& intf);

   // Forwarding state of every chip, also of later ones: the VLAN of a VXLAN network, and source NAT for frames from a
   // prefix. Throws std::invalid_argument for an invalid one.
   void vniIs(U32 vni, Bridging::VlanId vlan);
   void snatAdd(const Kiln::String& prefix);

   // The port of an interface, and the chip that has it. Throws std::invalid_argument if there is none.
   struct Port {
      SoftChip::Chip& chip;
      U16 devicePort;
   };
   Port portOf(const Kiln::String& intf) const;

   // Where the agent's shared tables are.
   const Silo::Store& tableStore() const { return *store_; }

 private:
   void build();
   void tearDown();
   void handleHardwareClock();
   Kiln::Ptr<ZelCounter::CountersMounts> mount();
   void portsAdd(SoftChip::Chip& chip);
   void chipUp(SoftChip::Chip& chip);
   SoftChip::Chip& chipWithPlace(const Kiln::String& chipName, U16 devicePort) const;
   void placeIs(const Pelt::IntfId& intf, SoftChip::Chip& chip, U16 devicePort);
   void placeDel(const Port& port);
   void l3StatusIs(const Pelt::IntfId& intf, bool present);

   SwitchAgentConfig config_;
   bool isKept_ = false; // see createdIsKept
   bool hasMadeFolder_ = false;
   std::optional<Silo::Store> store_;
   std::optional<Vex::SharedTables> newTables_; // until they are kept
   std::unique_ptr<SoftChip::Fleet> fleet_;
   std::unique_ptr<SoftChip::Traffic> traffic_;
   Kiln::Ptr<ZelSystem::SystemStatus> systemStatus_;
   Kiln::OrderedMap<Kiln::String, Kiln::Ptr<ZelSlice::ChipStatus>> chipStatus_; // by chip name
   Kiln::Ptr<Interface::EthPhyIntfStatusDir> ethPhyIntfStatusDir_;
   Kiln::Ptr<Interface::VlanIntfStatusDir> vlanIntfStatusDir_;
   Kiln::Ptr<Interface::SubIntfStatusDir> subIntfStatusDir_;
   Kiln::Ptr<Agent::AgentCommandRequestDirSm> commandDirectory_;
   Kiln::Ptr<ZelCounter::ZelCountersMgr> mgr_;
   Kiln::Ptr<Agent::CommandRunner> commandRunner_;
   Kiln::OrderedMap<U32, Bridging::VlanId> vlanOfVni_;
   std::vector<Kiln::String> snatPrefixes_;
   std::optional<Kiln::Timer<SwitchAgent>> hardwareClock_; // of a file, until its loss is told
};

} // namespace ZelAgent

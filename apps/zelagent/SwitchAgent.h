// The agent without its surroundings: the system status, the chips with their ports, the counters manager, and
// the commands, wired together. The program, the scenario console, tests and benchmarks stand on it.
#pragma once

#include "agent/CommandRunner.h"
#include "counters/ZelCountersMgr.h"
#include "softchip/SoftChip.h"
#include "zel/VlanId.h"

#include <memory>

namespace ZelAgent {

constexpr unsigned maxChips = ZelId::maxDevices;
// From the end of one polling pass to the start of the next, in seconds. Passes after next to no time would leave
// no time for anything else.
constexpr double shortestPollingInterval = 1e-3;
constexpr double longestPollingInterval = 1e6;

struct SwitchAgentConfig {
   unsigned chips = 1;
   unsigned pipes = 2;  // of each chip
   unsigned ports = 32; // front-panel ports of each chip, spread over its pipes
   ZelSystem::ChipCapabilities capabilities{true, true, true, true};
   U64 seed = 1;                 // of the synthetic traffic
   double pollingInterval = 2.0; // seconds, from the first pass on
   Kiln::String siloFolder{};    // where shared tables live; empty for the machine's shared memory
   // There: what the names of the tables begin with, and whether they go when the agent does.
   Kiln::String tablePrefix = Silo::Interface::defaultTablePrefix;
   bool tablesAreTemporary = false;
   Kiln::String hardwareFile{}; // where hardware counters live; empty for the process's own memory
};

// One at a time in a process, over the activity manager and time source that it finds. Everything runs under
// the activity lock but for the constructor, which takes it, and the destructor, which must not be called
// under it: what the SDK still owes is delivered then.
//
// A chip is ZelN with device id N. It comes up with its front-panel ports, named EthernetM counted on across
// chips, and serves the internal interface Internal(N+1), which has no port until one is added.
class SwitchAgent {
 public:
   // What can't be is a std::invalid_argument or std::runtime_error that says what is expected.
   explicit SwitchAgent(const SwitchAgentConfig& config);
   SwitchAgent(const SwitchAgent&) = delete;
   SwitchAgent& operator=(const SwitchAgent&) = delete;
   ~SwitchAgent();

   ZelCounter::ZelCountersMgr& countersMgr() { return *mgr_; }
   const ZelSystem::SystemStatus& systemStatus() const { return *systemStatus_; }
   SoftChip::Fleet& fleet() { return *fleet_; }
   SoftChip::Traffic& traffic() { return *traffic_; }
   const Kiln::Ptr<Agent::CommandRunner>& commandRunner() const { return commandRunner_; }

   // Brings a chip up, with its ports; one that is up goes away first. A name other than Zel0 to Zel7 is a
   // std::invalid_argument.
   void chipAdd(const Kiln::String& name);
   // The chip goes away, its hardware and ports with it. An unknown name does nothing.
   void chipDel(const Kiln::String& name);
   // An unknown name is a std::invalid_argument.
   void chipStateIs(const Kiln::String& name, U32 state);

   // An unknown name is a std::invalid_argument.
   SoftChip::Chip& chipNamed(const Kiln::String& name) const;

   // Gives an interface a port of a chip. A port that can't be, or is taken, is a std::invalid_argument.
   void portAdd(const Pelt::IntfId& intf, const Kiln::String& chipName, U16 devicePort);
   // An interface without a port is a std::invalid_argument.
   void portDel(const Pelt::IntfId& intf);

   // Puts an interface into the L3 interface table, carried by the VLAN; VlanN and EthernetN.M also enter their
   // status directory. One that the table has already is a std::invalid_argument.
   void l3Add(const Pelt::IntfId& intf, Bridging::VlanId vlan);
   // Takes it out again. One that isn't there is a std::invalid_argument.
   void l3Del(const Pelt::IntfId& intf);

   // Forwarding state of every chip, of those that come later, too: the VLAN of a VXLAN network, and source NAT
   // for what comes from a prefix. What can't be is a std::invalid_argument.
   void vniIs(U32 vni, Bridging::VlanId vlan);
   void snatAdd(const Kiln::String& prefix);

   // The port of an interface, and the chip that has it. None is a std::invalid_argument.
   struct Port {
      SoftChip::Chip& chip;
      U16 devicePort;
   };
   Port portOf(const Kiln::String& intf) const;

   // Where the agent's shared tables are.
   Silo::Store tableStore() const;

 private:
   Kiln::Ptr<ZelCounter::CountersMounts> mount() const;
   void portsAdd(SoftChip::Chip& chip);
   void l3StatusIs(const Pelt::IntfId& intf, bool present);

   SwitchAgentConfig config_;
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
};

} // namespace ZelAgent

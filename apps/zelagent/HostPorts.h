// The host's network interfaces as front-panel ports of the first chip, under their own names.
#pragma once

#include "apps/zelagent/SwitchAgent.h"
#include "kiln/Timer.h"
#include "softchip/HostInterfaces.h"

#include <map>

namespace ZelAgent {

// Looks at the interfaces twice a second: new ones get the next free ports, those that are gone lose theirs, and the
// counters and speeds of the others are updated. One that can't be looked at stays as it is; the operator log says so
// once, and once when it is over. Activity thread; the agent outlives it.
class HostPorts {
 public:
   HostPorts(SwitchAgent& agent, SoftChip::HostInterfaces interfaces);

   std::vector<Kiln::String> names() const; // of the interfaces that have a port

 private:
   void handleClock();
   void add(const Kiln::String& name);
   void errorIs(int error);

   static constexpr double tick = 0.5; // seconds
   static constexpr const char* chipName = "Zel0";

   SwitchAgent& agent_;
   SoftChip::HostInterfaces interfaces_;
   std::map<Kiln::String, U16> ports_; // device ports, by interface
   unsigned nextPlace_ = 0;
   bool isTroubled_ = false; // as the log has it
   Kiln::Timer<HostPorts> clock_;
};

} // namespace ZelAgent

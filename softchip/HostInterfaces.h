// The host's own network interfaces as ports: what the kernel counted on them, as the MAC of a port would have.
#pragma once

#include "softchip/Chip.h"

#include <vector>

namespace SoftChip {

// Needs no privilege. The kernel's counters are taken as they are, so `ip -s link` shows the same: octets are
// without FCS, and what the kernel doesn't tell apart, such as broadcasts, isn't counted apart. Which counter
// of the kernel fills which RMON counter is said in docs/rmon-counters.md. Activity thread.
class HostInterfaces {
 public:
   // A folder like the kernel's own: NAME/statistics/COUNTER.
   explicit HostInterfaces(Kiln::String folder = "/sys/class/net") : folder_(std::move(folder)) {}

   // Those that there are now, in natural order. Empty when the folder can't be read.
   std::vector<Kiln::String> names() const;

   // Sets the RMON counters of a port, all of them, from an interface's. False, and nothing is set, when there
   // is no such interface any more. A port that there isn't is a std::invalid_argument.
   bool mirror(const Kiln::String& name, Chip& chip, U16 devicePort) const;

 private:
   Kiln::String folder_;
};

} // namespace SoftChip

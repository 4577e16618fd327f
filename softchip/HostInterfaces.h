// The host's own network interfaces as ports: the kernel's counters take the place of a MAC's.
#pragma once

#include "softchip/Chip.h"

#include <map>
#include <optional>
#include <vector>

namespace SoftChip {

// Needs no privilege. Takes the kernel's counters as they are, so that `ip -s link` shows the same: octets are without
// FCS, and what the kernel does not count apart, such as broadcasts, is not counted apart here. docs/rmon-counters.md
// says which kernel counter fills which RMON counter. Activity thread.
class HostInterfaces {
 public:
   // A folder like the kernel's own: NAME/statistics/COUNTER, NAME/speed.
   explicit HostInterfaces(Kiln::String folder = "/sys/class/net") : folder_(std::move(folder)) {}

   // The interfaces that exist now, in natural order. Empty if the folder cannot be read.
   std::vector<Kiln::String> names() const;

   // Sets all RMON counters of a port from an interface. Sets nothing and returns false if the interface no longer
   // exists. Throws std::invalid_argument if the port does not.
   bool mirror(const Kiln::String& name, Chip& chip, U16 devicePort);

   // In bit/s; none if the kernel does not know it, as of a link that is down or of a loopback.
   std::optional<U64> speed(const Kiln::String& name) const;

 private:
   // What an interface received when it was last looked at.
   struct Received {
      U64 packets = 0;
      U64 unicast = 0;
   };

   Kiln::String folder_;
   std::map<Kiln::String, Received> received_; // by interface
};

} // namespace SoftChip

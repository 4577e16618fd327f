// The host's own network interfaces as ports: the kernel's counters take the place of a MAC's.
#pragma once

#include "softchip/Chip.h"

#include <map>
#include <optional>
#include <utility>
#include <vector>

namespace SoftChip {

// Needs no privilege. Takes the kernel's counters as they are, so that `ip -s link` shows the same: octets are without
// FCS, and what the kernel does not count apart, such as broadcasts, is not counted apart here. docs/rmon-counters.md
// says which kernel counter fills which RMON counter. Activity thread.
class HostInterfaces {
 public:
   // A folder like the kernel's own: NAME/statistics/COUNTER, NAME/speed.
   explicit HostInterfaces(Kiln::String folder = "/sys/class/net") : folder_(std::move(folder)) {}

   // The interfaces that exist now, in natural order, as far as they can be looked at.
   std::vector<Kiln::String> names();

   enum class Mirrored : U8 { done, gone, notSeen };
   // Sets all RMON counters of a port from an interface. Sets nothing if the interface is gone, or could not be looked
   // at, as when the process has no descriptors left. Throws std::invalid_argument if there is no such port.
   Mirrored mirror(const Kiln::String& name, Chip& chip, U16 devicePort);

   // In bit/s; none if the kernel does not know it, as of a link that is down or of a loopback. As it was last, if it
   // cannot be looked at.
   std::optional<U64> speed(const Kiln::String& name);

   // Why something could not be looked at since the last call, as an errno value; 0 if everything could.
   int takeError() { return std::exchange(error_, 0); }

 private:
   // An interface when it was last looked at.
   struct Seen {
      U64 packets = 0; // received
      U64 unicast = 0; // received
      std::optional<U64> speed;
   };
   // What a file of the kernel's said.
   struct Reading {
      int error = 0;            // of opening or reading it
      std::optional<U64> value; // none, too, if it says something else
   };

   Reading read(const Kiln::String& path);

   Kiln::String folder_;
   std::map<Kiln::String, Seen> seen_; // by interface
   int error_ = 0;
};

} // namespace SoftChip

// Reads the kernel's interface statistics.
#include "softchip/HostInterfaces.h"

#include "kiln/Name.h"
#include "kiln/Numbers.h"

#include <algorithm>
#include <array>
#include <filesystem>
#include <fstream>
#include <optional>

namespace SoftChip {

namespace {

// A kernel counter is added to each of the RMON counters that it belongs to.
struct HostCounter {
   const char* name;
   std::array<bf_rmon_counter_t, 3> adds;
   unsigned count; // of those
};

constexpr HostCounter hostCounters[] = {
     {"rx_packets", {BF_RMON_FRAMES_RECEIVED_OK, BF_RMON_FRAMES_RECEIVED_ALL}, 2},
     {"rx_bytes", {BF_RMON_OCTETS_RECEIVED_GOOD, BF_RMON_OCTETS_RECEIVED_ALL}, 2},
     {"rx_errors", {BF_RMON_FRAMES_RECEIVED_WITH_ERRORS, BF_RMON_FRAMES_RECEIVED_ALL}, 2},
     {"rx_crc_errors", {BF_RMON_FRAME_CHECK_SEQUENCE_ERRORS}, 1},
     {"rx_frame_errors", {BF_RMON_ALIGNMENT_ERRORS}, 1},
     {"rx_dropped", {BF_RMON_FRAMES_DROPPED_ON_RECEIVE}, 1},
     {"rx_missed_errors", {BF_RMON_FRAMES_DROPPED_ON_RECEIVE}, 1},
     {"multicast", {BF_RMON_MULTICAST_FRAMES_RECEIVED_OK}, 1},
     {"tx_packets",
      {BF_RMON_FRAMES_TRANSMITTED_OK, BF_RMON_FRAMES_TRANSMITTED_ALL, BF_RMON_UNICAST_FRAMES_TRANSMITTED_OK},
      3},
     {"tx_bytes", {BF_RMON_OCTETS_TRANSMITTED_GOOD, BF_RMON_OCTETS_TRANSMITTED_ALL}, 2},
     {"tx_errors", {BF_RMON_FRAMES_TRANSMITTED_WITH_ERRORS, BF_RMON_FRAMES_TRANSMITTED_ALL}, 2},
     {"tx_dropped", {BF_RMON_FRAMES_DROPPED_ON_TRANSMIT}, 1},
};

std::optional<U64> readCounter(const Kiln::String& path) {
   std::ifstream file(path);
   Kiln::String text;
   return file >> text ? Kiln::parseNumber<U64>(text) : std::nullopt;
}

} // namespace

std::vector<Kiln::String> HostInterfaces::names() const {
   std::vector<Kiln::String> names;
   std::error_code error;
   for (std::filesystem::directory_iterator at(folder_, error), end; !error && at != end;
        at.increment(error)) {
      const Kiln::String name = at->path().filename().string();
      // The kernel's folder has plain files beside the interfaces.
      if (readCounter(folder_ + "/" + name + "/statistics/rx_packets")) {
         names.push_back(name);
      }
   }
   std::sort(names.begin(), names.end(),
             [](const Kiln::String& a, const Kiln::String& b) { return Kiln::naturalCompare(a, b) < 0; });
   return names;
}

bool HostInterfaces::mirror(const Kiln::String& name, Chip& chip, U16 devicePort) {
   std::array<U64, BF_NUM_RMON_COUNTERS> rmon{};
   // Everything is read before anything is set: an interface may go away in between.
   for (const HostCounter& counter : hostCounters) {
      const std::optional<U64> value = readCounter(folder_ + "/" + name + "/statistics/" + counter.name);
      if (!value) {
         received_.erase(name);
         return false;
      }
      for (unsigned i = 0; i < counter.count; ++i) {
         rmon[counter.adds[i]] += *value;
      }
   }
   // The kernel has no counter of unicast frames, so it is the difference of two. They are read one after the other,
   // and a multicast frame in between would make the difference step back: it is kept from that, unless the interface
   // itself began anew. Compared with the interface's own last counts: the port may have been another one's before.
   const U64 packets = rmon[BF_RMON_FRAMES_RECEIVED_OK];
   const U64 unicast = packets - std::min(rmon[BF_RMON_MULTICAST_FRAMES_RECEIVED_OK], packets);
   Received& last = received_[name];
   last.unicast = packets >= last.packets ? std::max(unicast, last.unicast) : unicast;
   last.packets = packets;
   rmon[BF_RMON_UNICAST_FRAMES_RECEIVED_OK] = last.unicast;
   for (unsigned index = 0; index < rmon.size(); ++index) {
      chip.rmonIs(devicePort, index, rmon[index]);
   }
   return true;
}

std::optional<U64> HostInterfaces::speed(const Kiln::String& name) const {
   constexpr U64 fastest = 100'000'000; // Mbit/s; more is one of the ways to say that it is not known
   constexpr U64 bitsPerMbit = 1'000'000;
   const std::optional<U64> mbits = readCounter(folder_ + "/" + name + "/speed");
   return mbits && *mbits > 0 && *mbits <= fastest ? std::optional(*mbits * bitsPerMbit) : std::nullopt;
}

} // namespace SoftChip

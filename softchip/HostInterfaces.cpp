// Reads the kernel's interface statistics.
#include "softchip/HostInterfaces.h"

#include "kiln/Name.h"
#include "kiln/Numbers.h"
#include "kiln/OwnedFd.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <fcntl.h>
#include <filesystem>
#include <unistd.h>

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

} // namespace

// Only a file that is not there says that the interface is gone, and a link that is down has no speed (EINVAL): all else
// says that nobody knows.
HostInterfaces::Reading HostInterfaces::read(const Kiln::String& path) {
   const Kiln::OwnedFd file(open(path.c_str(), O_RDONLY | O_CLOEXEC));
   char text[32];
   const ssize_t got = file.isOpen() ? ::read(file.fd(), text, sizeof text) : -1;
   if (got < 0) {
      const int error = errno;
      error_ = error == ENOENT || error == EINVAL ? error_ : error;
      return {error, std::nullopt};
   }
   const std::string_view line(text, static_cast<std::size_t>(got));
   return {0, Kiln::parseNumber<U64>(line.substr(0, line.find('\n')))};
}

std::vector<Kiln::String> HostInterfaces::names() {
   std::vector<Kiln::String> names;
   std::error_code error;
   for (std::filesystem::directory_iterator at(folder_, error), end; !error && at != end;
        at.increment(error)) {
      const Kiln::String name = at->path().filename().string();
      std::error_code ignored;
      // The kernel's folder has plain files beside the interfaces.
      if (at->is_directory(ignored) && read(folder_ + "/" + name + "/statistics/rx_packets").value) {
         names.push_back(name);
      }
   }
   if (error) {
      error_ = error.value();
   }
   std::sort(names.begin(), names.end(),
             [](const Kiln::String& a, const Kiln::String& b) { return Kiln::naturalCompare(a, b) < 0; });
   return names;
}

HostInterfaces::Mirrored HostInterfaces::mirror(const Kiln::String& name, Chip& chip, U16 devicePort) {
   std::array<U64, BF_NUM_RMON_COUNTERS> rmon{};
   // Everything is read before anything is set: an interface may go away in between.
   for (const HostCounter& counter : hostCounters) {
      const Reading reading = read(folder_ + "/" + name + "/statistics/" + counter.name);
      if (reading.error == ENOENT) {
         seen_.erase(name);
         return Mirrored::gone;
      }
      if (!reading.value) {
         return Mirrored::notSeen;
      }
      for (unsigned i = 0; i < counter.count; ++i) {
         rmon[counter.adds[i]] += *reading.value;
      }
   }
   // The kernel has no counter of unicast frames, so it is the difference of two. They are read one after the other,
   // and a multicast frame in between would make the difference step back: it is kept from that, unless the interface
   // itself began anew. Compared with the interface's own last counts: the port may have been another one's before.
   const U64 packets = rmon[BF_RMON_FRAMES_RECEIVED_OK];
   const U64 unicast = packets - std::min(rmon[BF_RMON_MULTICAST_FRAMES_RECEIVED_OK], packets);
   Seen& last = seen_[name];
   last.unicast = packets >= last.packets ? std::max(unicast, last.unicast) : unicast;
   last.packets = packets;
   rmon[BF_RMON_UNICAST_FRAMES_RECEIVED_OK] = last.unicast;
   for (unsigned index = 0; index < rmon.size(); ++index) {
      chip.rmonIs(devicePort, index, rmon[index]);
   }
   return Mirrored::done;
}

std::optional<U64> HostInterfaces::speed(const Kiln::String& name) {
   constexpr U64 fastest = 100'000'000; // Mbit/s; more is one of the ways to say that it is not known
   constexpr U64 bitsPerMbit = 1'000'000;
   const Reading reading = read(folder_ + "/" + name + "/speed");
   std::optional<U64>& speed = seen_[name].speed;
   if (reading.error == 0 || reading.error == ENOENT || reading.error == EINVAL) {
      const U64 mbits = reading.value.value_or(0);
      speed = mbits > 0 && mbits <= fastest ? std::optional(mbits * bitsPerMbit) : std::nullopt;
   }
   return speed;
}

} // namespace SoftChip

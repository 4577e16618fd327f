// The chip's ports, and the way of a frame through it.
#include "Chip.h"

#include "RmonCounters.h"

#include <algorithm>
#include <stdexcept>
#include <string>

namespace SoftChip {

namespace {

using Lock = std::lock_guard<std::recursive_mutex>;

} // namespace

Chip::Chip(const ChipConfig& config, U64 serial, std::recursive_mutex& sdkLock, std::span<U64> hardware)
     : config_(config), serial_(serial), sdkLock_(sdkLock), rmon_(hardware),
       hasPort_(config.pipes * portsPerPipe) {}

std::size_t Chip::hardwareWords(const ChipConfig& config) {
   return config.pipes * portsPerPipe * BF_NUM_RMON_COUNTERS;
}

Kiln::String Chip::hardwareLayout(const ChipConfig& config) {
   return std::to_string(config.pipes) + " pipes";
}

bool Chip::isPlace(unsigned devicePort) const {
   return devicePort < devicePortLimit && devicePort / slotsPerPipe < config_.pipes &&
          devicePort % slotsPerPipe < portsPerPipe;
}

std::size_t Chip::placeOf(U16 devicePort) const {
   return devicePort / slotsPerPipe * portsPerPipe + devicePort % slotsPerPipe;
}

void Chip::portAdd(U16 devicePort) {
   const Lock lock(sdkLock_);
   if (!isPlace(devicePort)) {
      throw std::invalid_argument(name() + " has no device port " + std::to_string(devicePort) +
                                  ": expected pipe x 128 + slot, of pipes 0 to " +
                                  std::to_string(config_.pipes - 1) + " and slots 0 to " +
                                  std::to_string(portsPerPipe - 1));
   }
   if (hasPort(devicePort)) {
      throw std::invalid_argument(name() + " already has a port at " + std::to_string(devicePort));
   }
   hasPort_[placeOf(devicePort)] = true;
   ports_.insert(std::upper_bound(ports_.begin(), ports_.end(), devicePort), devicePort);
   ++portsVersion_;
}

void Chip::portDel(U16 devicePort) {
   const Lock lock(sdkLock_);
   if (hasPort(devicePort)) {
      hasPort_[placeOf(devicePort)] = false;
      std::erase(ports_, devicePort);
      macTable_.portDel(devicePort);
      ++portsVersion_;
   }
}

bool Chip::hasPort(U16 devicePort) const {
   const Lock lock(sdkLock_);
   return isPlace(devicePort) && hasPort_[placeOf(devicePort)];
}

std::vector<U16> Chip::ports() const {
   const Lock lock(sdkLock_);
   return ports_;
}

U64 Chip::portsVersion() const {
   const Lock lock(sdkLock_);
   return portsVersion_;
}

bool Chip::receive(U16 devicePort, const FrameInfo& frame, U64 repeat) {
   const Lock lock(sdkLock_);
   if (!hasPort(devicePort)) {
      return false;
   }
   countReceived(frame, rmonOf(devicePort), repeat);
   // The MAC drops a bad frame and consumes its own control frames.
   if (!frame.fcsError && !frame.macControl.present) {
      forward(devicePort, frame, repeat);
   }
   return true;
}

// As a learning bridge does: to the port behind which the address was last seen, to none when that is the
// port that it came from, to all others when it is unknown or a group.
void Chip::forward(U16 devicePort, const FrameInfo& frame, U64 repeat) {
   if (destinationKind(frame.sourceMac) == Destination::unicast) {
      macTable_.learn(frame.sourceMac, devicePort);
   }
   const U16 known =
        frame.destination == Destination::unicast ? macTable_.portOf(frame.destinationMac) : MacTable::none;
   if (known != MacTable::none) {
      if (known != devicePort) {
         transmit(known, frame, repeat);
      }
      return;
   }
   for (const U16 port : ports_) {
      if (port != devicePort) {
         transmit(port, frame, repeat);
      }
   }
}

void Chip::transmit(U16 devicePort, const FrameInfo& frame, U64 repeat) {
   countTransmitted(frame, rmonOf(devicePort), repeat);
}

U64& Chip::rmonAt(U16 devicePort, unsigned index) const {
   if (!isPlace(devicePort) || !hasPort_[placeOf(devicePort)]) {
      throw std::invalid_argument(name() + " has no port at " + std::to_string(devicePort));
   }
   if (index >= BF_NUM_RMON_COUNTERS) {
      throw std::invalid_argument("no RMON counter " + std::to_string(index) + ": expected 0 to " +
                                  std::to_string(BF_NUM_RMON_COUNTERS - 1));
   }
   return rmonOf(devicePort)[index];
}

U64 Chip::rmon(U16 devicePort, unsigned index) const {
   const Lock lock(sdkLock_);
   return rmonAt(devicePort, index);
}

void Chip::rmonIs(U16 devicePort, unsigned index, U64 value) {
   const Lock lock(sdkLock_);
   rmonAt(devicePort, index) = value;
}

void Chip::rmonFlip(U16 devicePort, unsigned index, unsigned bit) {
   const Lock lock(sdkLock_);
   U64& counter = rmonAt(devicePort, index);
   if (bit > 63) {
      throw std::invalid_argument("no bit " + std::to_string(bit) + ": expected 0 to 63");
   }
   counter ^= U64{1} << bit;
}

void Chip::rmonStuckIs(U16 devicePort, unsigned index, bool stuck) {
   const Lock lock(sdkLock_);
   const U64 value = rmonAt(devicePort, index);
   std::erase_if(stuck_,
                 [&](const StuckCounter& c) { return c.devicePort == devicePort && c.index == index; });
   if (stuck) {
      stuck_.push_back({devicePort, index, value});
   }
}

int Chip::checkPort(int devicePort) const {
   if (devicePort < 0 || !isPlace(static_cast<unsigned>(devicePort))) {
      return statusInvalidArguments;
   }
   return hasPort(static_cast<U16>(devicePort)) ? statusOk : statusObjectNotFound;
}

void Chip::readMac(U16 devicePort, bf_rmon_counter_array_t& into) const {
   const Lock lock(sdkLock_);
   std::copy_n(rmonOf(devicePort), BF_NUM_RMON_COUNTERS, into);
   for (const StuckCounter& counter : stuck_) {
      if (counter.devicePort == devicePort) {
         into[counter.index] = counter.value;
      }
   }
}

} // namespace SoftChip

// The chip's ports, and the way of a frame through it.
#include "Chip.h"

#include "RmonCounters.h"
#include "kiln/Time.h"

#include <algorithm>
#include <cstdio>
#include <stdexcept>
#include <string>

namespace SoftChip {

namespace {

using Lock = std::lock_guard<std::recursive_mutex>;

std::size_t rmonWords(const ChipConfig& config) {
   return std::size_t{config.pipes} * portsPerPipe * BF_NUM_RMON_COUNTERS;
}

} // namespace

Chip::Chip(const ChipConfig& config, U64 serial, std::recursive_mutex& sdkLock, std::span<U64> hardware)
     : config_(config), serial_(serial), sdkLock_(sdkLock), rmon_(hardware.first(rmonWords(config))),
       hasPort_(config.pipes * portsPerPipe), accessVlans_(hasPort_.size(), 1),
       tables_(config.program, config.pipes,
               hardware.subspan(rmon_.size() + TrafficManager::hardwareWords(config.pipes))),
       pipeline_(tables_), l2Domains_(tables_),
       trafficManager_(config.pipes,
                       hardware.subspan(rmon_.size(), TrafficManager::hardwareWords(config.pipes))) {}

std::size_t Chip::hardwareWords(const ChipConfig& config) {
   return rmonWords(config) + TrafficManager::hardwareWords(config.pipes) +
          PipeManager::hardwareWords(*config.program, config.pipes);
}

Kiln::String Chip::hardwareLayout(const ChipConfig& config) {
   char text[48];
   std::snprintf(text, sizeof text, "%u pipes and program %08X", config.pipes, config.program->signature());
   return text;
}

bool Chip::isPlace(unsigned devicePort) const {
   return devicePort / slotsPerPipe < config_.pipes && devicePort % slotsPerPipe < portsPerPipe;
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
   if (frame.fcsError || frame.macControl.present) {
      return true;
   }
   const U16 vlan = frame.outerTag.vlanId != 0 ? frame.outerTag.vlanId : accessVlans_[placeOf(devicePort)];
   const U64 length = frame.wireLength > fcsOctets ? frame.wireLength - fcsOctets : 0;
   const L2Domain domain = l2Domains_.domainOf(frame, vlan);
   const PassingFrames passing{frame, repeat, length, domain.vlan, domain.decapType, domain.snatHit};
   l2Domains_.ingress(passing, devicePort / slotsPerPipe);
   now_ = Kiln::System::currentTime();
   if (pipeline_.ingress(passing, devicePort / slotsPerPipe, devicePort % slotsPerPipe)) {
      forward(devicePort, passing);
   }
   return true;
}

// As a learning bridge does: to the port behind which the address was last seen, to none when that is the
// port that it came from, to all others when it is unknown or a group.
void Chip::forward(U16 devicePort, const PassingFrames& passing) {
   const FrameInfo& frame = passing.frame;
   if (destinationKind(frame.sourceMac) == Destination::unicast) {
      macTable_.learn(frame.sourceMac, devicePort);
   }
   const U16 known =
        frame.destination == Destination::unicast ? macTable_.portOf(frame.destinationMac) : MacTable::none;
   if (known != MacTable::none) {
      if (known != devicePort) {
         transmit(known, passing);
      }
      return;
   }
   for (const U16 port : ports_) {
      if (port != devicePort) {
         transmit(port, passing);
      }
   }
}

void Chip::transmit(U16 devicePort, const PassingFrames& offered) {
   const unsigned slot = devicePort % slotsPerPipe;
   const unsigned queue = queueOf(offered.frame, slot);
   const U64 sent =
        trafficManager_.send(placeOf(devicePort), queue, offered.packets, offered.octetsEach, now_);
   if (sent == 0) {
      return;
   }
   PassingFrames passing = offered;
   passing.packets = sent;
   if (pipeline_.egress(passing, devicePort / slotsPerPipe, slot, queue)) {
      l2Domains_.egress(passing, devicePort / slotsPerPipe);
      countTransmitted(passing.frame, rmonOf(devicePort), sent);
   }
}

std::size_t Chip::portPlace(U16 devicePort) const {
   if (!isPlace(devicePort) || !hasPort_[placeOf(devicePort)]) {
      throw std::invalid_argument(name() + " has no port at " + std::to_string(devicePort));
   }
   return placeOf(devicePort);
}

U64& Chip::rmonAt(U16 devicePort, unsigned index) const {
   const std::size_t place = portPlace(devicePort);
   if (index >= BF_NUM_RMON_COUNTERS) {
      throw std::invalid_argument("no RMON counter " + std::to_string(index) + ": expected 0 to " +
                                  std::to_string(BF_NUM_RMON_COUNTERS - 1));
   }
   return rmon_[place * BF_NUM_RMON_COUNTERS + index];
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

void Chip::accessVlanIs(U16 devicePort, U16 vlan) {
   const Lock lock(sdkLock_);
   if (vlan < 1 || vlan > 4094) {
      throw std::invalid_argument("no VLAN " + std::to_string(vlan) + ": expected 1 to 4094");
   }
   accessVlans_[portPlace(devicePort)] = vlan;
}

void Chip::queueIs(U16 devicePort, unsigned queue, const CounterValue& sent, U64 drops) {
   const Lock lock(sdkLock_);
   const std::size_t place = portPlace(devicePort);
   const unsigned slot = devicePort % slotsPerPipe;
   if (queue >= queueCount(slot)) {
      throw std::invalid_argument("no queue " + std::to_string(queue) + ": expected 0 to " +
                                  std::to_string(queueCount(slot) - 1));
   }
   counterTable("egressPortQueueCount")
        .hardwareIs(static_cast<U16>(devicePort / slotsPerPipe), firstQueueEntry(slot) + queue, sent);
   trafficManager_.drops(place, queue) = drops;
}

void Chip::vniIs(U32 vni, U16 vlan) {
   const Lock lock(sdkLock_);
   l2Domains_.vniIs(vni, vlan);
}

void Chip::snatAdd(const Kiln::String& prefix) {
   const Lock lock(sdkLock_);
   l2Domains_.snatAdd(prefix);
}

void Chip::l2DomainCountAdd(bool isIngress, const L2Domain& domain, const CounterValue& counted) {
   const Lock lock(sdkLock_);
   if (domain.vlan >= L2DomainIndex::vlanLimit || domain.decapType >= L2DomainIndex::decapTypes ||
       !l2Domains_.add(isIngress, domain, counted)) {
      throw std::invalid_argument(name() + " has no " + (isIngress ? "ingress" : "egress") +
                                  " count entry of VLAN " + std::to_string(domain.vlan) +
                                  ", decapsulation type " + std::to_string(domain.decapType) +
                                  (domain.snatHit ? ", source NAT" : ""));
   }
}

CounterTable& Chip::counterTable(const Kiln::String& table) const {
   CounterTable* const found = tables_.counterTable(table);
   if (found == nullptr) {
      throw std::invalid_argument(name() + " has no counter table " + table);
   }
   return *found;
}

U32 Chip::matchHandle(const Kiln::String& table) const {
   const ZlResourceInfo::ZlTable* const found = program()->zlTable(program()->zlTableIndex(table));
   if (found == nullptr) {
      throw std::invalid_argument(name() + " has no match table " + table);
   }
   return found->handle;
}

void Chip::checkEntry(const CounterTable& table, U16 pipe, U32 index) const {
   if (table.symmetric() ? pipe != allPipes : pipe >= pipes()) {
      throw std::invalid_argument(
           table.spec().name +
           (table.symmetric() ? " counts for all pipes together: expected all"
                              : " counts per pipe: expected pipe 0 to " + std::to_string(pipes() - 1)));
   }
   if (index >= table.slots()) {
      throw std::invalid_argument(table.spec().name + " has no entry " + std::to_string(index) +
                                  ": expected 0 to " + std::to_string(table.slots() - 1));
   }
}

CounterValue Chip::tableEntry(const Kiln::String& table, U16 pipe, U32 index) const {
   const Lock lock(sdkLock_);
   const CounterTable& found = counterTable(table);
   checkEntry(found, pipe, index);
   return found.hardware(pipe, index);
}

void Chip::tableEntryIs(const Kiln::String& table, U16 pipe, U32 index, const CounterValue& value) {
   const Lock lock(sdkLock_);
   CounterTable& found = counterTable(table);
   checkEntry(found, pipe, index);
   found.hardwareIs(pipe, index, value);
}

void Chip::tableInitializedAfterIs(const Kiln::String& table, U32 queries) {
   const Lock lock(sdkLock_);
   counterTable(table).initializedAfterIs(queries);
}

void Chip::capacityIs(const Kiln::String& table, U32 entries) {
   const Lock lock(sdkLock_);
   matchHandle(table);
   MatchTable& found = *tables_.matchTable(table);
   if (entries > found.spec().capacity) {
      throw std::invalid_argument(table + " holds at most " + std::to_string(found.spec().capacity) +
                                  " entries");
   }
   found.capacityIs(entries);
}

int Chip::entryAdd(const Kiln::String& table, const MatchRule& rule, S32* handle, U16 pipe) {
   const Lock lock(sdkLock_);
   return tables_.entryAdd(matchHandle(table), pipe, rule, handle);
}

int Chip::entryDel(const Kiln::String& table, S32 handle) {
   const Lock lock(sdkLock_);
   return tables_.entryDel(matchHandle(table), handle);
}

Kiln::String Chip::entryText(U32 tableHandle, S32 handle) const {
   const Lock lock(sdkLock_);
   return tables_.entryText(tableHandle, handle);
}

int Chip::checkPort(int devicePort) const {
   if (devicePort < 0 || !isPlace(static_cast<unsigned>(devicePort))) {
      return statusInvalidArguments;
   }
   return hasPort_[placeOf(static_cast<U16>(devicePort))] ? statusOk : statusObjectNotFound;
}

int Chip::readDrops(U16 pipe, int devicePort, U32 queue, U64* drops) {
   const int status = checkPort(devicePort);
   if (status != statusOk) {
      return status;
   }
   const auto port = static_cast<U16>(devicePort);
   if (port / slotsPerPipe != pipe || queue >= queueCount(port % slotsPerPipe)) {
      return statusInvalidArguments;
   }
   *drops = trafficManager_.drops(placeOf(port), queue);
   return statusOk;
}

void Chip::readMac(U16 devicePort, bf_rmon_counter_array_t& into) const {
   std::copy_n(rmonOf(devicePort), BF_NUM_RMON_COUNTERS, into);
   for (const StuckCounter& counter : stuck_) {
      if (counter.devicePort == devicePort) {
         into[counter.index] = counter.value;
      }
   }
}

} // namespace SoftChip

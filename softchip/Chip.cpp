// The chip's ports, the way of a frame through it, and the checks of its callers' arguments.
#include "softchip/Chip.h"

#include "kiln/Time.h"
#include "softchip/RmonCounters.h"

#include <algorithm>
#include <cstdio>
#include <stdexcept>
#include <string>

namespace SoftChip {

namespace {

using Lock = std::lock_guard<std::recursive_mutex>;
using ZlDrop::EgressReason;
using ZlDrop::IngressReason;
using ZlPort::pipeOf;
using ZlPort::portsPerPipe;
using ZlPort::slotOf;

// Counts every place, with a port or without: a port that comes and goes must not move the others in the file.
std::size_t rmonWords(const ChipConfig& config) {
   return std::size_t{config.pipes} * portsPerPipe * BF_NUM_RMON_COUNTERS;
}

// The parts of the hardware's words. Their order is part of a hardware file's format.
struct Parts {
   Parts(const ChipConfig& config, std::span<U64> hardware)
        : rmon(hardware.first(rmonWords(config))),
          queues(hardware.subspan(rmon.size(), TrafficManager::hardwareWords(config.pipes))),
          path(hardware.subspan(rmon.size() + queues.size(), PathCounters::hardwareWords(config.pipes))),
          tables(hardware.subspan(rmon.size() + queues.size() + path.size())) {}

   std::span<U64> rmon;
   std::span<U64> queues;
   std::span<U64> path;
   std::span<U64> tables;
};

void checkWithin(const char* what, U32 number, U32 limit) {
   if (number >= limit) {
      throw std::invalid_argument("no " + std::string(what) + " " + std::to_string(number) +
                                  ": expected 0 to " + std::to_string(limit - 1));
   }
}

} // namespace

Chip::Chip(const ChipConfig& config, U64 serial, std::recursive_mutex& sdkLock, std::span<U64> hardware)
     : config_(config), serial_(serial), sdkLock_(sdkLock), hardware_(hardware),
       rmon_(Parts(config, hardware).rmon), hasPort_(config.pipes * portsPerPipe),
       accessVlans_(hasPort_.size(), 1),
       tables_(config.program, config.pipes, Parts(config, hardware).tables), pipeline_(tables_),
       path_(Parts(config, hardware).path), drops_(tables_, path_), rules_(hasPort_.size()),
       l2Domains_(tables_, config.vxlan), trafficManager_(config.pipes, Parts(config, hardware).queues) {}

std::size_t Chip::hardwareWords(const ChipConfig& config) {
   return rmonWords(config) + TrafficManager::hardwareWords(config.pipes) +
          PathCounters::hardwareWords(config.pipes) +
          PipeManager::hardwareWords(*config.program, config.pipes);
}

Kiln::String Chip::hardwareLayout(const ChipConfig& config) {
   char text[48];
   std::snprintf(text, sizeof text, "%u pipes and program %08X", config.pipes, config.program->signature());
   return text;
}

bool Chip::isPlace(unsigned devicePort) const {
   return devicePort < ZlPort::devicePort(config_.pipes, 0) &&
          slotOf(static_cast<U16>(devicePort)) < portsPerPipe;
}

std::size_t Chip::placeOf(U16 devicePort) const {
   return std::size_t{pipeOf(devicePort)} * portsPerPipe + slotOf(devicePort);
}

void Chip::restart(U64 serial, bool keepsCounters) {
   const Lock lock(sdkLock_);
   serial_ = serial;
   if (!keepsCounters) {
      std::fill(hardware_.begin(), hardware_.end(), 0);
   }
   tables_.restart();
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
      // Otherwise frames for its stations would still be sent to a place without a port.
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
   // Counts whatever becomes of the frame: the MAC is ahead of the pipeline.
   countReceived(frame, rmonOf(devicePort), repeat);
   const unsigned pipe = pipeOf(devicePort);
   if (frame.fcsError) {
      // Nothing is learned from it either: with a bad FCS no address in it can be trusted.
      drops_.ingress(devicePort, IngressReason::badFcs, repeat);
      return true;
   }
   if (frame.macControl.present) {
      path_.count(pipe, BF_PIPE_PATH_PORT_RX, repeat, 0,
                  0); // the MAC consumes it: neither passed nor dropped
      return true;
   }
   path_.passed(pipe, BF_PIPE_PATH_PORT_RX, repeat);
   path_.passed(pipe, BF_PIPE_PATH_PARSER, repeat);
   // VLAN 0 only carries a priority and names no VLAN.
   const U16 vlan = frame.outerTag.vlanId != 0 ? frame.outerTag.vlanId : accessVlans_[placeOf(devicePort)];
   std::optional<IngressReason> reason = portVerdict(devicePort, frame, vlan);
   if (!reason) {
      const U64 length = frame.wireLength > fcsOctets ? frame.wireLength - fcsOctets : 0;
      const L2Domain domain = l2Domains_.domainOf(frame, vlan);
      const PassingFrames passing{frame, repeat, length, domain.vlan, domain.decapType, domain.snatHit};
      // Before anything drops the frame: like the other tables of the stage, this one counts frames that are then
      // dropped.
      l2Domains_.ingress(passing, pipe);
      now_ = Kiln::System::currentTime();
      reason = pipeline_.ingress(passing, pipe, slotOf(devicePort));
      if (!reason) {
         forward(devicePort, passing);
      }
   }
   if (reason) {
      drops_.ingress(devicePort, *reason, repeat);
   }
   return true;
}

// The port's own checks, in the order of the reasons' numbers: a frame that fails several counts for the first.
std::optional<IngressReason> Chip::portVerdict(U16 devicePort, const FrameInfo& frame, U16 vlan) const {
   // 4095 is reserved (IEEE 802.1Q).
   if (vlan >= PortRules::vlanLimit - 1) {
      return IngressReason::vlanInvalid;
   }
   if (!rules_.vlanAllowed(placeOf(devicePort), vlan)) {
      return IngressReason::vlanNotAllowed;
   }
   return destinationKind(frame.sourceMac) != Destination::unicast ? std::optional(IngressReason::groupSource)
                                                                   : std::nullopt;
}

// Like a learning bridge: a frame goes to the port where its destination was last seen, or is dropped if that is the
// port that it came from; one for an unknown station or a group goes to all other ports of the VLAN.
void Chip::forward(U16 devicePort, const PassingFrames& passing) {
   const FrameInfo& frame = passing.frame;
   // Only here: frames that a check or a table dropped teach nothing. Those that are dropped below do.
   macTable_.learn(frame.sourceMac, devicePort);
   const bool unicast = frame.destination == Destination::unicast;
   const U16 known = unicast ? macTable_.portOf(frame.destinationMac) : MacTable::none;
   std::optional<IngressReason> reason;
   Progress furthest;
   if (known != MacTable::none) {
      if (known == devicePort) {
         reason = IngressReason::samePort;
      } else {
         furthest = transmit(devicePort, known, passing, false);
      }
   } else if (unicast && !rules_.floods(placeOf(devicePort))) {
      reason = IngressReason::unknownUnicast;
   } else if (flood(devicePort, passing, &furthest) == 0) {
      reason = IngressReason::noEgressPort;
   }
   if (reason) {
      drops_.ingress(devicePort, *reason, passing.packets);
      return;
   }
   const unsigned pipe = pipeOf(devicePort);
   path_.passed(pipe, BF_PIPE_PATH_INGRESS, passing.packets);
   path_.passed(pipe, BF_PIPE_PATH_INGRESS_DEPARSER, passing.packets);
   // In counts frames, at the pipe where they arrived. Out and Dropped count copies, at the pipe where each is to
   // leave: see transmit().
   path_.count(pipe, BF_PIPE_PATH_TRAFFIC_MANAGER, passing.packets, 0, 0);
   trafficManager_.accept(pipe, passing.packets, passing.octetsEach);
   drops_.lost(devicePort, ZlDrop::FinalReason::queue, passing.packets - furthest.throughQueue);
   drops_.lost(devicePort, ZlDrop::FinalReason::egress, furthest.throughQueue - furthest.left);
}

// Returns to how many ports. Of `packets` equal frames it is always the first ones that get through, at each port. So
// the best port's number says how many frames had at least one copy get that far.
U64 Chip::flood(U16 devicePort, const PassingFrames& passing, Progress* furthest) {
   U64 copies = 0;
   for (const U16 port : ports_) {
      // A port outside the VLAN gets no copy, so nothing is dropped there. Only a frame for a station known to be
      // behind such a port is an egress drop.
      if (port != devicePort && rules_.vlanAllowed(placeOf(port), passing.vlan)) {
         const Progress one = transmit(devicePort, port, passing, true);
         furthest->throughQueue = std::max(furthest->throughQueue, one.throughQueue);
         furthest->left = std::max(furthest->left, one.left);
         ++copies;
      }
   }
   return copies;
}

Chip::Progress Chip::transmit(U16 from, U16 devicePort, const PassingFrames& offered, bool replicated) {
   const unsigned pipe = pipeOf(devicePort);
   const unsigned queue = queueOf(offered.frame, slotOf(devicePort));
   const U64 sent = trafficManager_.send(
        {placeOf(from), placeOf(devicePort), queue, offered.packets, offered.octetsEach, replicated}, now_);
   if (sent < offered.packets) {
      drops_.egress(devicePort, EgressReason::queueCongested, offered.packets - sent);
   }
   if (sent == 0) {
      return {};
   }
   path_.count(pipe, BF_PIPE_PATH_TRAFFIC_MANAGER, 0, sent, 0);
   PassingFrames passing = offered;
   passing.packets = sent;
   if (const auto reason = egress(devicePort, passing, queue)) {
      drops_.egress(devicePort, *reason, sent);
      return {sent, 0};
   }
   path_.passed(pipe, BF_PIPE_PATH_EGRESS, sent);
   path_.passed(pipe, BF_PIPE_PATH_EGRESS_DEPARSER, sent);
   path_.passed(pipe, BF_PIPE_PATH_PORT_TX, sent);
   l2Domains_.egress(passing, pipe);
   countTransmitted(passing.frame, rmonOf(devicePort), sent);
   return {sent, sent};
}

// Every table counts, even if the frame is dropped for its VLAN: the checks come after the tables.
std::optional<EgressReason> Chip::egress(U16 devicePort, const PassingFrames& passing, unsigned queue) {
   const std::size_t place = placeOf(devicePort);
   const auto denied = pipeline_.egress(passing, pipeOf(devicePort), slotOf(devicePort), queue);
   if (!rules_.vlanAllowed(place, passing.vlan)) {
      return EgressReason::vlanNotAllowed;
   }
   if (denied) {
      return denied;
   }
   return passing.frame.wireLength > rules_.mtu(place) ? std::optional(EgressReason::mtuExceeded)
                                                       : std::nullopt;
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
   // Kept beside the counter, not in it: the hardware goes on counting, and only readMac() reads the old value.
   const U64 value = rmonAt(devicePort, index);
   std::erase_if(stuck_,
                 [&](const StuckCounter& c) { return c.devicePort == devicePort && c.index == index; });
   if (stuck) {
      stuck_.push_back({devicePort, index, value});
   }
}

void Chip::accessVlanIs(U16 devicePort, U16 vlan) {
   const Lock lock(sdkLock_);
   checkVlan(vlan);
   accessVlans_[portPlace(devicePort)] = vlan;
}

void Chip::vlanAllowedIs(U16 devicePort, U16 vlan, bool allowed) {
   const Lock lock(sdkLock_);
   checkVlan(vlan);
   rules_.vlanAllowedIs(portPlace(devicePort), vlan, allowed);
}

void Chip::mtuIs(U16 devicePort, U32 octets) {
   const Lock lock(sdkLock_);
   if (octets < 64) {
      throw std::invalid_argument("no MTU of " + std::to_string(octets) + ": expected 64 octets or more");
   }
   rules_.mtuIs(portPlace(devicePort), octets);
}

void Chip::floodsIs(U16 devicePort, bool floods) {
   const Lock lock(sdkLock_);
   rules_.floodsIs(portPlace(devicePort), floods);
}

void Chip::queueIs(U16 devicePort, unsigned queue, const CounterValue& sent, U64 drops) {
   const Lock lock(sdkLock_);
   const std::size_t place = portPlace(devicePort);
   const unsigned slot = slotOf(devicePort);
   if (queue >= ZlPort::queueCount(slot)) {
      throw std::invalid_argument("no queue " + std::to_string(queue) + ": expected 0 to " +
                                  std::to_string(ZlPort::queueCount(slot) - 1));
   }
   // What a queue sent is in a table of the program, what it dropped is in the traffic manager: the SDK reads them by
   // different entry points.
   counterTable("egressPortQueueCount").hardwareIs(pipeOf(devicePort), ZlPort::queueEntry(slot, queue), sent);
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

void Chip::pathAdd(U16 pipe, U32 stage, const bf_pipe_path_count_t& counted) {
   const Lock lock(sdkLock_);
   checkWithin("pipe", pipe, pipes());
   checkWithin("stage", stage, BF_PIPE_PATH_STAGES);
   path_.count(pipe, stage, counted.in, counted.out, counted.dropped);
}

void Chip::pipeDropsAdd(U16 pipe, bool isDeparser, U32 number, U64 packets) {
   const Lock lock(sdkLock_);
   checkWithin("pipe", pipe, pipes());
   checkWithin("stage", number, isDeparser ? U32{BF_PIPE_DIRECTIONS} : U32{BF_PIPE_MAU_STAGES});
   (isDeparser ? path_.deparserDrops(pipe, number) : path_.mauDrops(pipe, number)) += packets;
}

void Chip::tmAdd(U16 pipe, U32 type, U64 packets, U64 octetsEach) {
   const Lock lock(sdkLock_);
   checkWithin("pipe", pipe, pipes());
   checkWithin("type", type, U32{BF_TM_PIPE_CUT_THROUGH} + 1);
   trafficManager_.add(pipe, type, packets, octetsEach);
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
   // Only for its refusal of an unknown table.
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
   if (pipeOf(port) != pipe || queue >= ZlPort::queueCount(slotOf(port))) {
      return statusInvalidArguments;
   }
   *drops = trafficManager_.drops(placeOf(port), queue);
   return statusOk;
}

int Chip::readTm(U16 pipe, U32 type, bf_tm_pipe_counter_t* counter) const {
   const auto value =
        pipe < pipes() ? trafficManager_.counter(pipe, type, Kiln::System::currentTime()) : std::nullopt;
   if (!value) {
      return statusInvalidArguments;
   }
   *counter = *value;
   return statusOk;
}

int Chip::readPath(U16 pipe, U32 stage, bf_pipe_path_count_t* count) const {
   if (pipe >= pipes() || stage >= BF_PIPE_PATH_STAGES) {
      return statusInvalidArguments;
   }
   *count = path_.stage(pipe, stage);
   return statusOk;
}

int Chip::readMauDrops(U16 pipe, U32 stage, U64* drops) {
   if (pipe >= pipes() || stage >= BF_PIPE_MAU_STAGES) {
      return statusInvalidArguments;
   }
   *drops = path_.mauDrops(pipe, stage);
   return statusOk;
}

int Chip::readDeparserDrops(U16 pipe, U32 direction, U64* drops) {
   if (pipe >= pipes() || direction >= BF_PIPE_DIRECTIONS) {
      return statusInvalidArguments;
   }
   *drops = path_.deparserDrops(pipe, direction);
   return statusOk;
}

void Chip::readMac(U16 devicePort, bf_rmon_counter_array_t& into) const {
   // The port may be gone since the request was accepted. Its place still has its counters.
   std::copy_n(rmonOf(devicePort), BF_NUM_RMON_COUNTERS, into);
   for (const StuckCounter& counter : stuck_) {
      if (counter.devicePort == devicePort) {
         into[counter.index] = counter.value;
      }
   }
}

} // namespace SoftChip

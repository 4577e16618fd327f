// The rules of what counts.
#include "tests/campaign/Model.h"

#include "vex/PublishedChip.h"

#include <algorithm>
#include <utility>

namespace Campaign {

namespace {

constexpr U64 window = U64{1} << 48;
constexpr double portSpeed = 100e9;
constexpr std::size_t historyLimit = 64;

// The fields of a sample of the history, but for the drops of queues.
constexpr std::array<std::size_t, 8> historyFields{0, 18, 1, 19, 37, 50, 36, 49};

} // namespace

Begin Trail::next(Place place, U32 life, std::set<U16>& counted) {
   isExchanged = false;
   const std::pair source(place, life);
   if (last == source) {
      return Begin::step;
   }
   const auto before = std::exchange(last, source);
   const bool wasCounted = !counted.insert(place.port).second;
   const auto first = std::exchange(kept, std::nullopt);
   isExchanged = before.has_value();
   if (before) {
      return before->first == place ? Begin::step : Begin::nothing;
   }
   return first ? *first : wasCounted ? Begin::nothing : Begin::whole;
}

template <std::size_t n>
std::array<U64, n> Meter<n>::read(const std::array<U64, n>& values, Begin begin) {
   isMarked = false;
   std::array<U64, n> counts{};
   if (begin != Begin::step) {
      last = values;
      lift = {};
      return begin == Begin::whole ? values : counts;
   }
   bool hasFallen = false;
   bool goesOn = true;
   for (std::size_t i = 0; i < n; ++i) {
      hasFallen |= values[i] < last[i];
      goesOn &= values[i] >= last[i] - lift[i];
   }
   for (std::size_t i = 0; i < n; ++i) {
      const U64 from = !hasFallen ? last[i] : goesOn ? last[i] - lift[i] : 0;
      const U64 rise = values[i] - from;
      if (hasFallen) {
         lift[i] = 0;
      }
      (rise < window ? counts[i] : lift[i]) += rise;
      isMarked |= hasFallen || rise >= window;
   }
   last = values;
   return counts;
}

U32 Model::lifeOf(U8 device) const {
   const auto found = chips.find(device);
   return found != chips.end() ? found->second.life : 0;
}

void Model::chipCame(U8 device, unsigned pipes) {
   counted[{Family::health, "Zel" + std::to_string(device)}].isTotalKnown =
        false; // the last pass may not have told all
   Chip& chip = chips[device] = {};
   chip.life = ++lives_;
   chip.hasLeftovers = mayRefuseDeletions;
   for (unsigned pipe = 0; pipe < pipes; ++pipe) {
      chip.pipes[static_cast<U16>(pipe)] = {};
   }
   for (auto& [intf, port] : ports) {
      port.queues.isStored &= port.place.device != device;
   }
   for (auto& [intf, l3Intf] : l3) {
      chip.wanted.insert(l3Intf.vlan);
      l3Intf.isLossy = true;
   }
}

void Model::chipWent(U8 device) {
   chips.erase(device);
   std::erase_if(ports, [&](const auto& entry) { return entry.second.place.device == device; });
   std::erase_if(hardware, [&](const auto& entry) { return entry.first.device == device; });
   for (auto& [intf, l3Intf] : l3) {
      l3Intf.isLossy = true;
   }
}

void Model::chipRestarted(U8 device, bool keepsCounters, unsigned pipes) {
   const U32 state = chips.at(device).state;
   chipCame(device, pipes);
   chips.at(device).state = state;
   for (auto& [place, counts] : hardware) {
      if (place.device == device) {
         counts.copy = {};
         if (!keepsCounters) {
            counts = {};
         }
      }
   }
}

// What other places have shown of the interface is not its own any more.
void Model::placed(const std::string& intf, Place place) {
   for (auto& [device, chip] : chips) {
      const auto shown = chip.shown.find(intf);
      if (shown != chip.shown.end() && (device != place.device || shown->second.port != place.port)) {
         chip.shown.erase(shown);
      }
   }
}

void Model::portCame(const std::string& intf, Place place, double now) {
   placed(intf, place);
   Port& port = ports[intf];
   if (port.isPublished) { // by an earlier agent: it is gone on with
      port.place = place;
      return;
   }
   const Port::Queues queues = std::move(port.queues);
   // A clear is known by when its record was created, and no time passes between two agents.
   const auto cleared = port.createdTime == now ? port.cleared : std::nullopt;
   port = {};
   port.queues = queues; // likewise
   port.cleared = cleared;
   port.place = place;
   port.createdTime = port.discontinuityTime = now;
}

void Model::portWent(const std::string& intf) {
   ports.erase(intf);
}

void Model::portMoved(const std::string& intf, Place place) {
   placed(intf, place);
   Port& port = ports.at(intf);
   port.place = place;
   port.queues.isStored = false;
}

std::string Model::intfAt(Place place) const {
   const auto found = std::find_if(ports.begin(), ports.end(),
                                   [&](const auto& entry) { return entry.second.place == place; });
   return found != ports.end() ? found->first : std::string();
}

void Model::agentEnded(bool isOrderly, double now) {
   for (auto& [key, places] : counted) {
      places.isTotalKnown = places.isShownKnown = false;
   }
   for (auto& [intf, port] : ports) {
      if (isOrderly && port.queues.isStored) {
         takeQueues(port, now);
      }
   }
   for (auto& [intf, port] : ports) {
      port.isFirst = true;
      port.deltas = {};
      port.isAbsorbed = {};
      port.interval = 0;
      port.trail = {{}, Begin::step};
      port.queues.isStored = false;
      port.queues.sent = {};
      port.queues.dropped = {};
      port.queues.trail = {};
      if (port.queues.isReported) {
         port.queues.trail.kept = Begin::nothing;
      }
   }
   chips.clear();
}

void Model::macAnswered(Place place, double now) {
   const std::string intf = intfAt(place);
   if (!intf.empty()) {
      Shown& shown = chips.at(place.device).shown[intf];
      shown.port = place.port;
      shown.readTime = now;
      shown.last = hardware[place].mac;
      takeMac(intf, ports.at(intf), now);
   }
}

void Model::takeMac(const std::string& intf, Port& port, double now) {
   Chip& chip = chips.at(port.place.device);
   const Hardware& counts = hardware[port.place];
   const auto before = port.trail.last;
   const Begin begin = port.trail.next(port.place, chip.life, chip.macCounted);
   if (before && before->first != port.place) {
      happened(now, "port-moved", intf);
   }
   bool isMarked = port.trail.isExchanged;
   const U32 wrapsBefore = chip.overflowCount;
   const U32 upsetsBefore = chip.seuCount;
   bool hasUpset = false;
   port.isAbsorbed = {};
   for (std::size_t field = 0; field < fieldCount; ++field) {
      const U64 to = counts.mac[rmonOfField_[field]];
      const U64 from = begin == Begin::nothing ? to : port.reading[field];
      port.reading[field] = to;
      U64 step = to - from;
      bool isUpset = to >= from ? step >= window : true;
      bool isWrap = false;
      if (field < wrapChecked) {
         isWrap = to < from && from > 0xFFFF000000000000 && to < 0xFFFFFFFFFFFF;
         isUpset = isUpset && !isWrap;
      } else {
         // A value with the top bit reads as 0 here, so that its step passes, and adds nothing all the same.
         const U64 wasPlain = from >> 63 != 0 ? 0 : from;
         const U64 isPlain = to >> 63 != 0 ? 0 : to;
         isUpset = isPlain < wasPlain || isPlain - wasPlain >= window;
      }
      chip.seuCount += isUpset ? 1 : 0;
      chip.overflowCount += isWrap ? 1 : 0;
      port.isAbsorbed[field] = isUpset || (step >= window && !isWrap);
      if (port.isAbsorbed[field]) {
         step = 0;
      }
      hasUpset |= port.isAbsorbed[field];
      isMarked |= isWrap || port.isAbsorbed[field] || (from & ~to) >> 63 != 0;
      port.deltas[field] = step;
      port.totals[field] += step;
   }
   auto& health = counted[{Family::health, "Zel" + std::to_string(port.place.device)}].tallies;
   health[Silo::Interface::ChipHealth::wraps][0].total += chip.overflowCount - wrapsBefore;
   health[Silo::Interface::ChipHealth::upsets][0].total += chip.seuCount - upsetsBefore;
   if (chip.overflowCount != wrapsBefore) {
      ++wrapReadings;
      happened(now, "wrap", intf);
   }
   if (hasUpset) {
      happened(now, "upset", intf);
   }
   port.interval = port.trail.isExchanged || port.sampleTime == -never ? 0 : now - port.sampleTime;
   if (isMarked) {
      port.discontinuityTime = now;
   } else if (!port.isFirst && port.interval > 0) {
      for (const std::size_t octets : {std::size_t{0}, std::size_t{18}}) {
         const double most = portSpeed / 8 * port.interval * 1.1;
         port.suspects += static_cast<double>(port.deltas[octets]) > most ? 1U : 0U;
      }
   }
   port.isFirst = false;
   port.isPublished = true;
   port.sampleTime = now;
   std::array<U64, 9> sample{};
   for (std::size_t i = 0; i < historyFields.size(); ++i) {
      sample[i] = port.totals[historyFields[i]];
   }
   for (const QueueCount& queue : port.queues.totals) {
      sample[8] += queue[2];
   }
   port.history.emplace_back(now, sample);
   if (port.history.size() > historyLimit) {
      port.history.pop_front();
   }
}

void Model::synced(U8 device, U16 pipe) {
   for (auto& [place, counts] : hardware) {
      if (place.device == device && place.pipe() == pipe) {
         counts.copy = counts.queues;
      }
   }
}

bool Model::queuesAnswered(U8 device, U16 pipe, double now) {
   const auto chip = chips.find(device);
   if (chip == chips.end() || !std::exchange(chip->second.pipes.at(pipe).isOutstanding, false)) {
      return false;
   }
   for (auto& [intf, port] : ports) {
      if (port.place.device == device && port.place.pipe() == pipe) {
         takeQueues(port, now);
      }
   }
   return true;
}

void Model::takeQueues(Port& port, double now) {
   Port::Queues& queues = port.queues;
   Chip& chip = chips.at(port.place.device);
   const Hardware& counts = hardware[port.place];
   const bool wasReported = queues.isReported;
   const Begin begin = queues.trail.next(port.place, chip.life, chip.queuesCounted);
   bool isMarked = queues.trail.isExchanged || (begin == Begin::nothing && wasReported);
   const std::size_t has = port.place.queues();
   for (std::size_t queue = has; queue < queueLimit; ++queue) {
      if (begin != Begin::step || queues.trail.isExchanged) {
         queues.sent[queue] = {};
         queues.dropped[queue] = {};
      }
   }
   for (std::size_t queue = 0; queue < has; ++queue) {
      const QueueCount& copy = counts.copy[queue];
      const auto sent = queues.sent[queue].read({copy[0], copy[1]}, begin);
      const auto dropped = queues.dropped[queue].read({counts.queues[queue][2]}, begin);
      queues.totals[queue][0] += sent[0];
      queues.totals[queue][1] += sent[1];
      queues.totals[queue][2] += dropped[0];
      isMarked |= queues.sent[queue].isMarked || queues.dropped[queue].isMarked;
   }
   queues.present = (1U << has) - 1;
   queues.isReported = queues.isStored = true;
   queues.sampleTime = now;
   if (isMarked) {
      queues.discontinuityTime = now;
   }
}

void Model::clear(const std::string& intf) {
   Port& port = ports.at(intf);
   port.cleared = port.totals;
   port.queues.cleared = port.queues.totals;
}

void Model::l3Came(const std::string& intf, U16 vlan, double now) {
   L3Intf& made = l3[intf];
   if (made.vlan == 0) { // else an earlier agent's goes on
      made = {vlan, now};
   }
   for (const auto& [other, l3Intf] : l3) {
      made.isLossy |= other != intf && l3Intf.vlan == vlan;
   }
   for (auto& [device, chip] : chips) {
      made.isLossy |= chip.hasLeftovers || chip.state != 8;
      chip.wanted.insert(vlan);
   }
   if (made.isLossy) {
      // Its entries may be there already. It counts from the SDK's copy, which may lack any part of what was before.
      made.counted = vlans[vlan].counted;
      made.nat = vlans[vlan].nat;
   }
}

void Model::l3Went(const std::string& intf) {
   const U16 vlan = l3.at(intf).vlan;
   l3.erase(intf);
   for (auto& [other, l3Intf] : l3) {
      l3Intf.isLossy |= l3Intf.vlan == vlan;
   }
   for (auto& [device, chip] : chips) {
      chip.wanted.erase(vlan);
   }
}

} // namespace Campaign

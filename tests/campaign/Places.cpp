// What a chip counts besides its ports' MACs and queues: drops by reason, classes, the stages of its pipes, the traffic
// manager; and how it fares. Of these the model knows the most that can have been counted, and now and then, when nothing
// is under way, what exactly was.
#include "counters/ZelCounters.h"
#include "sdk/bf_pipe.h"
#include "sdk/bf_tm.h"
#include "softchip/PdpClasses.h"
#include "tests/campaign/Campaign.h"
#include "tests/campaign/Readers.h"

#include <algorithm>

namespace Campaign {

namespace {

using namespace Silo::Interface;

constexpr std::size_t dropPoints = ZlDrop::tables.size();
constexpr std::size_t valueLimit = 3; // of a place

constexpr std::array<U32, 5> tmTypes{BF_TM_PIPE_INGRESS, BF_TM_PIPE_EGRESS, BF_TM_PIPE_DROPS,
                                     BF_TM_PIPE_MULTICAST, BF_TM_PIPE_CUT_THROUGH};

// Where the hardware counts one place of a family.
struct Where {
   const char* table = nullptr; // null: no table
   U32 index = 0;
   bool isDeparser = false;
};

Where whereOf(Family family, Place place, std::size_t at) {
   const auto number = static_cast<U32>(at);
   switch (family) {
   case Family::drops:
      return {ZlDrop::tables[at / ZlDrop::reasonsPerPort].name,
              ZlDrop::entryIndex(place.slot(), number % ZlDrop::reasonsPerPort)};
   case Family::classes:
      return {"pdpClassCount", ZlPort::pdpEntry(place.slot(), number)};
   case Family::pipeDrops: // four stages, a deparser, two stages, a deparser
      return {nullptr, at == 4 || at == 7 ? number / 7 : at > 4 ? number - 1 : number, at == 4 || at == 7};
   default:
      return {nullptr, number};
   }
}

std::size_t placesOf(Family family) {
   constexpr std::array<std::size_t, 6> counts{dropPoints * ZlDrop::reasonsPerPort,
                                               ZlPort::pdpClassesPerSlot,
                                               PipeStageCounters::placeCount,
                                               PipeDropCounters::placeCount,
                                               tmTypes.size(),
                                               0};
   return counts.at(static_cast<std::size_t>(family));
}

bool isOfPort(Family family) {
   return family == Family::drops || family == Family::classes;
}

// As the hardware has it.
std::array<U64, valueLimit> valuesOf(SoftChip::Chip& chip, Family family, Place place, std::size_t at) {
   const Where where = whereOf(family, place, at);
   const auto pipe = static_cast<U16>(place.pipe());
   std::array<U64, valueLimit> values{};
   if (where.table != nullptr) {
      values[0] = chip.tableEntry(where.table, pipe, where.index).packets;
   } else if (family == Family::stages) {
      bf_pipe_path_count_t count{};
      chip.readPath(pipe, where.index, &count);
      values = {count.in, count.out, count.dropped};
   } else if (family == Family::pipeDrops && where.isDeparser) {
      chip.readDeparserDrops(pipe, where.index, values.data());
   } else if (family == Family::pipeDrops) {
      chip.readMauDrops(pipe, where.index, values.data());
   } else {
      bf_tm_pipe_counter_t counter{};
      chip.readTm(pipe, tmTypes.at(at), &counter);
      values = {counter.count, counter.bytes, 0};
   }
   return values;
}

std::string pipeName(U8 device, unsigned pipe) {
   return "Zel" + std::to_string(device) + ":" + std::to_string(pipe);
}

// Which place, by a row of a view; none for a row that the model knows nothing of.
std::optional<std::size_t> placeOfRow(Family family, const ZelTest::Json& row) {
   const auto in = [](const auto& names, const std::string& name) -> std::optional<std::size_t> {
      const auto found = std::ranges::find(names, name, [](const char* text) { return std::string(text); });
      return found != names.end() ? std::optional(static_cast<std::size_t>(found - names.begin()))
                                  : std::nullopt;
   };
   const auto text = [&](const char* column) { return row.at(column).template get<std::string>(); };
   switch (family) {
   case Family::drops: {
      const auto point = std::ranges::find(ZlDrop::tables, text("Point"), &ZlDrop::Table::point);
      const auto reason = in(point->reasons, text("Reason"));
      return reason ? std::optional(static_cast<std::size_t>(point - ZlDrop::tables.begin()) *
                                         ZlDrop::reasonsPerPort +
                                    *reason)
                    : std::nullopt;
   }
   case Family::classes: {
      const auto found = std::ranges::find(SoftChip::pdpClasses, text("Class"), &SoftChip::PdpClass::name);
      return found->id;
   }
   case Family::stages:
      return in(PipeStageCounters::placeNames, text("Stage"));
   case Family::pipeDrops:
      return in(PipeDropCounters::placeNames, text("Place"));
   default: {
      const auto place = in(PipeTmCounters::placeNames, text("Counter"));
      return place && *place < tmTypes.size() ? place : std::nullopt; // the others are levels
   }
   }
}

// The columns that count.
std::vector<const char*> columnsOf(Family family) {
   return family == Family::stages           ? std::vector{"In", "Out", "Dropped"}
          : family == Family::trafficManager ? std::vector{"Packets or cells", "Bytes"}
                                             : std::vector{"Packets"};
}

struct Show {
   Family family;
   const char* command;
   const char* clear;
};
constexpr std::array shows{Show{Family::drops, "show drop", "clear drop"},
                           Show{Family::classes, "show pdp", "clear pdp"},
                           Show{Family::stages, "show pipeline", "clear pipeline"},
                           Show{Family::pipeDrops, "show mau-deparser-drop", "clear mau-deparser-drop"},
                           Show{Family::trafficManager, "show traffic-manager", "clear traffic-manager"}};

// Whether a clear zeroes what the family's view shows.
bool isCleared(Family family, const std::string& clear) {
   const bool isTable = clear == "clear" || clear == "clear table";
   return clear == shows[static_cast<std::size_t>(family)].clear || (isTable && family == Family::drops) ||
          (clear == "clear" && family != Family::drops && family != Family::pipeDrops);
}

} // namespace

void Run::packets(Draws& draws) {
   const auto family = static_cast<Family>(draws.below(5));
   const std::string* const intf = drawPort(draws);
   if (intf == nullptr) {
      return;
   }
   const Place place = model_.ports.at(*intf).place;
   const auto pipe = static_cast<U16>(place.pipe());
   SoftChip::Chip& chip = *agent_->fleet().chip(place.device);
   Counted& counted =
        model_.counted[{family, isOfPort(family) ? *intf : pipeName(place.device, place.pipe())}];
   for (U64 left = 1 + draws.below(12); left > 0; --left) {
      const std::size_t at = draws.below(placesOf(family));
      const Where where = whereOf(family, place, at);
      const U64 first = draws.below(1000);
      const U64 second = draws.below(1000);
      std::array<U64, valueLimit> values{first, 0, 0};
      if (where.table != nullptr) {
         const SoftChip::CounterValue before = chip.tableEntry(where.table, pipe, where.index);
         chip.tableEntryIs(where.table, pipe, where.index, {before.packets + first, before.bytes});
      } else if (family == Family::stages) {
         values = {first + second, first, second};
         chip.pathAdd(pipe, where.index, {first + second, first, second});
      } else if (family == Family::pipeDrops) {
         chip.pipeDropsAdd(pipe, where.isDeparser, where.index, first);
      } else {
         values[1] = first * second;
         chip.tmAdd(pipe, tmTypes.at(at), first, second);
      }
      for (std::size_t i = 0; i < values.size(); ++i) {
         counted.tallies[at][i].total += values[i];
         counted.tallies[at][i].shown += values[i];
      }
   }
}

// Whose record it is may count all that the hardware has there, or nothing of it.
void Run::beginCounted(Family family, const std::string& name, Place place, bool isMoved) {
   SoftChip::Chip& chip = *agent_->fleet().chip(place.device);
   Counted& counted = model_.counted[{family, name}];
   counted.isTotalKnown = counted.isShownKnown = false;
   for (std::size_t at = 0; at < placesOf(family); ++at) {
      const auto values = valuesOf(chip, family, place, at);
      auto& tallies = counted.tallies[at];
      for (std::size_t i = 0; i < values.size(); ++i) {
         tallies[i].total += values[i];
         tallies[i].shown = (isMoved ? 0 : tallies[i].shown) + values[i];
      }
   }
}

void Run::beginPort(const std::string& intf, Place place, bool isMoved) {
   beginCounted(Family::drops, intf, place, isMoved);
   beginCounted(Family::classes, intf, place, isMoved);
}

void Run::beginChip(U8 device) {
   for (unsigned pipe = 0; pipe < config_.pipes; ++pipe) {
      const Place place{device, static_cast<U16>(pipe * 128)};
      for (const Family family : {Family::stages, Family::pipeDrops, Family::trafficManager}) {
         beginCounted(family, pipeName(device, pipe), place, false);
      }
   }
   for (const auto& [intf, port] : model_.ports) {
      if (port.place.device == device) {
         beginPort(intf, port.place, false);
      }
   }
}

// Of what has a record; null while it is away.
const Chip* Run::chipOf(Family family, const std::string& name) const {
   const auto port = model_.ports.find(name);
   if (isOfPort(family) && port == model_.ports.end()) {
      return nullptr;
   }
   const auto chip =
        model_.chips.find(isOfPort(family) ? port->second.place.device : static_cast<U8>(name[3] - '0'));
   return chip != model_.chips.end() ? &chip->second : nullptr;
}

// `isExact`: nothing was under way, so that all that was counted is what was cleared.
void Run::clearedCounted(const std::string& clear, bool isExact) {
   for (auto& [key, counted] : model_.counted) {
      const bool isTable = clear == "clear" || clear == "clear table";
      if (key.first == Family::drops && isTable) {
         counted.isTotalKnown &= isExact; // what was not synced is gone with the hardware's counts
      }
      if (key.first != Family::health && isCleared(key.first, clear) && chipOf(key.first, key.second)) {
         counted.isShownKnown = isExact;
         for (auto& [at, tallies] : counted.tallies) {
            for (Tally& tally : tallies) {
               tally.shown = isExact ? 0 : tally.shown;
            }
         }
      }
   }
}

void Run::checkShownCounted(Family family, const ZelTest::Json& document, bool isCalm) {
   for (const ZelTest::Json& chip : ZelTest::listOf(document, "chips")) {
      const auto device = static_cast<U8>(chip.at("chip").get<std::string>().back() - '0');
      const bool isSynced = isCalm && !model_.chips.at(device).hasLost;
      for (const ZelTest::Json& table : ZelTest::listOf(chip, "tables")) {
         const auto& age = table.contains("age-ms") ? table.at("age-ms") : ZelTest::Json();
         constexpr double msPerSecond = 1000;
         expect(age.is_null() || !isOfPort(family) ||
                     age.get<double>() >= (now() - model_.syncTimes.at(device)) * msPerSecond - 1,
                table.at("title").get<std::string>(), " claims to be fresher than any sync");
         for (const ZelTest::Json& row : ZelTest::listOf(table, "rows")) {
            if (isOfPort(family) && !row.contains("Interface")) {
               continue; // the sum over them
            }
            const auto at = placeOfRow(family, row);
            const std::string name = isOfPort(family) ? row.at("Interface").get<std::string>()
                                                      : pipeName(device, row.at("Pipe").get<unsigned>());
            const std::vector<const char*> columns = columnsOf(family);
            for (std::size_t i = 0; at && i < columns.size(); ++i) {
               Counted& counted = model_.counted[{family, name}];
               Tally& tally = counted.tallies[*at][i];
               if (row.at(columns[i]).is_null()) {
                  continue;
               }
               const U64 shown = row.at(columns[i]).get<U64>();
               expect(shown <= tally.shown && (!isSynced || !counted.isShownKnown || shown == tally.shown),
                      "place ", *at, " of ", name, " shows ", shown, " since the clear, where ", tally.shown,
                      " were counted: ", row.dump());
               if (isSynced) {
                  tally.shown = shown; // from here on it is known again
               }
            }
         }
      }
      for (auto& [key, counted] : model_.counted) {
         counted.isShownKnown |=
              isSynced && key.first == family && chipOf(family, key.second) == &model_.chips.at(device);
      }
   }
}

template <class Record>
void Run::checkCountedRecords(Silo::TableReader<Record>& reader, Family family, bool isCalm) {
   std::vector<Silo::Entry<Record>> entries;
   reader.snapshot(entries);
   for (const auto& entry : entries) {
      const std::string name(entry.key.view());
      const Chip* const chip = chipOf(family, name);
      if (entry.result != Silo::ReadResult::ok) {
         // What was damaged is whole again with the chip's next pass, which may never come.
         expect(!isCalm || (chip != nullptr && chip->hasLost), "the record of ", name, " in the table of ",
                Record::layoutName, " is not whole");
         continue;
      }
      const Record& record = entry.sample.record;
      Counted& counted = model_.counted[{family, name}];
      const bool isKnown = isCalm && chip != nullptr && !chip->hasLost;
      const bool isAnew = std::exchange(counted.createdTime, record.createdTime) != record.createdTime;
      const std::size_t places = family == Family::health ? Record::placeCount : placesOf(family);
      for (std::size_t at = 0; at < places; ++at) {
         expect(record.readTimes[at] <= entry.sample.info.sampleTime &&
                     entry.sample.info.sampleTime <= now() &&
                     (!isOfPort(family) || record.readTimes[at] <= model_.syncTimes.at(record.device)),
                "place ", at, " of ", name, " claims to be fresher than it is");
         if (family == Family::health && at < ChipHealth::wraps) {
            continue;
         }
         for (std::size_t i = 0; i < Record::valueCount; ++i) {
            Tally& tally = counted.tallies[at][i];
            const U64 total = record.totals[at][i];
            expect(total <= tally.total && (isAnew || total >= tally.seen) &&
                        (!isKnown || !counted.isTotalKnown || isAnew || total == tally.total),
                   Record::layoutName, " of ", name, ", place ", at, ": total ", total, ", after ",
                   tally.seen, ", and ", tally.total, " were counted");
            tally.seen = total;
            tally.total = isKnown ? total : tally.total;
            note(total);
         }
      }
      counted.isTotalKnown |= isKnown;
   }
}

void Run::checkCounted(bool isCalm) {
   if (now() - damagedAt_ < mendingTime) {
      return;
   }
   checkCountedRecords(readers_->drops, Family::drops, isCalm);
   checkCountedRecords(readers_->classes, Family::classes, isCalm);
   checkCountedRecords(readers_->stages, Family::stages, isCalm);
   checkCountedRecords(readers_->pipeDrops, Family::pipeDrops, isCalm);
   checkCountedRecords(readers_->trafficManager, Family::trafficManager, isCalm);
   checkCountedRecords(readers_->health, Family::health, isCalm);
   for (const auto& [intf, port] : model_.ports) {
      Silo::Sample<IntfPlace> sample;
      const bool isTold = readers_->places.read(intf, sample) == Silo::ReadResult::ok;
      expect(!isCalm || isTold, intf, " has no place");
      expect(!isCalm ||
                  (sample.record.chip.data() == chipName(port.place.device) &&
                   sample.record.device == port.place.device && sample.record.devicePort == port.place.port),
             "the place of ", intf, " is wrong");
   }
}

// When nothing is under way any more: what is counted since a clear is exact, and nothing right after one.
void Run::checkCalmCounted() {
   checkCounted(true);
   const auto checkShown = [&] {
      for (const Show& show : shows) {
         checkShownCounted(show.family, ZelCtl::readJson(ask(std::string(show.command) + " json")), true);
      }
   };
   if (model_.chips.empty()) {
      return;
   }
   checkShown();
   constexpr std::array clears{"clear",
                               "clear table",
                               "clear drop",
                               "clear pdp",
                               "clear pipeline",
                               "clear mau-deparser-drop",
                               "clear traffic-manager"};
   const std::string clear = clears.at(result_.events % clears.size());
   command(clear);
   clearedCounted(clear, true);
   checkShown();
}

} // namespace Campaign

// Reads a chip's tables and pipes slice by slice.
#include "counters/publish/ChipPublishingSm.h"

#include "counters/chip/CounterTableNames.h"
#include "counters/chip/Guarded.h"
#include "counters/chip/IndirectRead.h"
#include "counters/chip/SdkStatus.h"
#include "counters/chip/ZelCountersTrace.h"
#include "counters/drops/MauDrops.h"
#include "kiln/Time.h"
#include "sdk/bf_pipe.h"

#include <algorithm>

namespace ZelCounter {

namespace {

using Silo::Interface::ChipHealth;
using Silo::Interface::IntfDropCounters;
using Silo::Interface::IntfPdpCounters;
using Silo::Interface::PipeDropCounters;
using Silo::Interface::PipeStageCounters;
using Silo::Interface::PipeTmCounters;
using ZlResourceInfo::ZlTableCounter;

// Cut where it is too long. A class may have several names.
void addName(std::array<char, 64>& text, std::string_view name) {
   std::size_t length = std::string_view(text.data()).size();
   const std::size_t last = text.size() - 1; // a NUL
   if (length != 0 && length < last) {
      text[length++] = '/';
   }
   name.copy(text.data() + length, last - length);
}

} // namespace

ChipPublishingSm::ChipPublishingSm(ChipAccess& chip, const TmCounters& tm,
                                   Kiln::Ptr<Vex::ChipPublisher> publisher,
                                   Kiln::Ptr<const Kiln::Clock> clock)
     : chip_(chip), tm_(tm), publisher_(std::move(publisher)),
       sliceClock_(std::move(clock), this, &ChipPublishingSm::handleSliceClock),
       chipName_(Kiln::Name(chip.chipName())) {
   for (const U16 pipe : chip.pipes()) {
      pipeNames_.emplace_back(Kiln::Name(pipeName(chip, pipe)));
   }
   for (std::size_t point = 0; point < drops_.size(); ++point) {
      drops_[point] = tableOf(ZlDrop::tables[point].name, ZlDrop::tableSize);
   }
   classes_ = tableOf(TableNames::pdpClassCount, ZlPort::pdpTableSize);
}

Kiln::String ChipPublishingSm::pipeName(const ChipAccess& chip, U16 pipe) {
   return chip.chipName() + ":" + std::to_string(pipe);
}

// A program need not have these tables.
ChipPublishingSm::Table ChipPublishingSm::tableOf(const Kiln::String& name, U32 size) const {
   const auto& catalogue = chip_.zlResourceInfoIntf();
   const U32 id = catalogue ? catalogue->zlTableCounterIndex(name) : ZlResourceInfo::notFound;
   const ZlTableCounter* const info =
        id != ZlResourceInfo::notFound ? catalogue->zlTableCounter(id) : nullptr;
   const bool fits = info != nullptr && !info->direct && info->packets && info->size >= size;
   return {id, fits ? info : nullptr, std::vector<double>(pipeNames_.size())};
}

// When the SDK's copy of the table was synced; nothing if it is not there to be read, or was read already. A table that
// the last pass could not sync has nothing new.
std::optional<double> ChipPublishingSm::syncTime(const Table& table, U16 pipe, bool isAnyway) const {
   if (table.info == nullptr || !chip_.initializedCounter(table.id) || !chip_.firstPollingComplete() ||
       !chip_.perPipeCounter(table.id)) {
      return std::nullopt;
   }
   const double time = chip_.readings().reading({ReadingKey::Kind::tableSync, table.id, pipe}).readTime;
   if (time == Kiln::never || (!isAnyway && time <= table.takenTimes[pipe])) {
      return std::nullopt;
   }
   return time;
}

void ChipPublishingSm::handleSyncPass() {
   if (nextSlice_ != 0) {
      isDueAgain_ = true;
   } else {
      sliceClock_.timeMinIs(Kiln::System::currentTime());
   }
}

void ChipPublishingSm::handleSliceClock() {
   readSlice(nextSlice_, false);
   nextSlice_ = (nextSlice_ + 1) % (static_cast<U32>(What::count) * static_cast<U32>(pipeNames_.size()));
   if (nextSlice_ != 0 || std::exchange(isDueAgain_, false)) {
      sliceClock_.timeMinIs(Kiln::System::currentTime());
   }
}

void ChipPublishingSm::readOnceMore() {
   for (U32 slice = 0; slice < static_cast<U32>(What::count) * pipeNames_.size(); ++slice) {
      readSlice(slice, true);
   }
}

void ChipPublishingSm::readSlice(U32 slice, bool isAnyway) {
   const auto pipe = static_cast<U16>(slice / static_cast<U32>(What::count));
   guarded("publishing what a chip counts", [&] {
      switch (static_cast<What>(slice % static_cast<U32>(What::count))) {
      case What::drops:
         readDrops(pipe, isAnyway);
         break;
      case What::classes:
         readClasses(pipe, isAnyway);
         break;
      default:
         readPath(pipe);
      }
   });
}

template <class Visit>
void ChipPublishingSm::forEachPort(U16 pipe, Visit visit) {
   for (const ChipAccess::Port& port : chip_.ports()) {
      if (ZlPort::pipeOf(port.devicePort) == pipe && ZlPort::slotOf(port.devicePort) < ZlPort::portsPerPipe) {
         visit(port);
      }
   }
}

// So many entries of each port of the pipe; `entryOf(slot, number)` says where one is in the table and in the record. A
// failed read ends the table's for this pass.
template <class Publisher, class EntryOf>
void ChipPublishingSm::takeTable(Publisher& publisher, Table& table, U16 pipe, double time, U32 entries,
                                 EntryOf entryOf) {
   IndirectRead read(chip_, pipe, table.info->tableHandle, false);
   U32 status = read.start();
   forEachPort(pipe, [&](const ChipAccess::Port& port) {
      publisher_->tried(port.intf, [&] {
         if (status != 0) {
            return;
         }
         auto& counted = publisher.countedOf(port.intf, sourceAt(port.devicePort));
         for (U32 entry = 0; entry < entries; ++entry) {
            const auto [index, place] = entryOf(ZlPort::slotOf(port.devicePort), entry);
            p4_pd_counter_value value{};
            status = read.entry(index, &value);
            if (status != 0) {
               return;
            }
            counted.take(place, {value.packets}, time);
         }
      });
   });
   if (status == 0) {
      status = read.end();
   }
   if (status == 0) {
      table.takenTimes[pipe] = time;
   } else {
      KILN_TRACE(4, pipeReadErrorText(static_cast<int>(status), pipe) << ", " << table.info->name);
   }
}

void ChipPublishingSm::readDrops(U16 pipe, bool isAnyway, const Table* only) {
   for (std::size_t point = 0; point < drops_.size(); ++point) {
      Table& table = drops_[point];
      const std::optional<double> time = syncTime(table, pipe, isAnyway);
      if (time && (only == nullptr || only == &table)) {
         takeTable(publisher_->drops(), table, pipe, *time, ZlDrop::reasonsPerPort,
                   [&](U32 slot, U32 reason) {
                      return std::pair(ZlDrop::entryIndex(slot, reason),
                                       IntfDropCounters::place(static_cast<ZlDrop::Point>(point), reason));
                   });
      }
   }
   forEachPort(pipe, [&](const ChipAccess::Port& port) {
      publisher_->tried(port.intf, [&] { publisher_->drops().publish(port.intf); });
   });
}

// What each class is called; "default" is the class of what no name was given for.
void ChipPublishingSm::nameClasses() {
   constexpr std::string_view defaultClass = "default";
   classNames_ = {};
   bool isDefaultNamed = false;
   if (const auto& mapping = chip_.systemStatus()->qosToZelPdpClassMapping()) {
      for (const auto& [name, pdpClass] : mapping->zelPdpClass()) {
         addName(classNames_[pdpClass.value()], name);
         isDefaultNamed |= name == defaultClass;
      }
   }
   if (!isDefaultNamed) {
      addName(classNames_[0], defaultClass);
   }
}

void ChipPublishingSm::readClasses(U16 pipe, bool isAnyway) {
   const std::optional<double> time = syncTime(classes_, pipe, isAnyway);
   if (!time) {
      return;
   }
   takeTable(publisher_->classes(), classes_, pipe, *time, ZlPort::pdpClassesPerSlot,
             [](U32 slot, U32 pdpClass) {
                return std::pair(ZlPort::pdpEntry(slot, pdpClass), std::size_t{pdpClass});
             });
   nameClasses();
   forEachPort(pipe, [&](const ChipAccess::Port& port) {
      publisher_->tried(port.intf, [&] {
         publisher_->classes().publish(port.intf, [this](IntfPdpCounters& r) { r.classNames = classNames_; });
      });
   });
}

void ChipPublishingSm::readPath(U16 pipe) {
   const Pelt::IntfId& name = pipeNames_[pipe];
   const Vex::Source source = sourceAt(pipe);
   const double now = Kiln::System::currentTime();
   const auto isRead = [&](bf_status_t status) {
      if (status != BF_SUCCESS) {
         KILN_TRACE(4, pipeReadErrorText(status, pipe) << ", " << name);
      }
      return status == BF_SUCCESS;
   };
   publisher_->tried(name, [&] {
      auto& counted = publisher_->stages().countedOf(name, source);
      for (U32 stage = 0; stage < PipeStageCounters::placeCount; ++stage) {
         bf_pipe_path_count_t count{};
         if (isRead(bf_pipe_path_counter_get(chip_.deviceId(), pipe, stage, &count))) {
            counted.take(stage, {count.in, count.out, count.dropped}, now);
         }
      }
      publisher_->stages().publish(name);
   });
   publisher_->tried(name, [&] {
      auto& counted = publisher_->pipeDrops().countedOf(name, source);
      for (std::size_t place = 0; place < PipeDropCounters::placeCount; ++place) {
         U64 drops = 0;
         if (isRead(MauDrops::read(chip_.deviceId(), pipe, place, &drops))) {
            counted.take(place, {drops}, now);
         }
      }
      publisher_->pipeDrops().publish(name);
   });
   publisher_->tried(name, [&] {
      auto& counted = publisher_->trafficManager().countedOf(name, source);
      for (std::size_t place = 0; place < PipeTmCounters::placeCount; ++place) {
         if (const TmCounters::Polled polled = tm_.polled(pipe, place); polled.isRead) {
            counted.take(place, {polled.count, polled.bytes}, polled.time);
         }
      }
      publisher_->trafficManager().publish(name);
   });
}

ChipPublishingSm::Table* ChipPublishingSm::dropTable(const ZlTableCounter& info) {
   const auto found = std::ranges::find_if(
        drops_, [&](const Table& table) { return table.info != nullptr && table.info->name == info.name; });
   return found != drops_.end() ? &*found : nullptr;
}

void ChipPublishingSm::readOnceMore(const ZlTableCounter& info, ZelId::ZelPipeId pipe) {
   if (const Table* const table = dropTable(info)) {
      for (const U16 each : chip_.pipes()) {
         if (pipe == ZelId::ZelPipeId::allPipes() || pipe == each) {
            guarded("publishing what a chip counts", [&] { readDrops(each, true, table); });
         }
      }
   }
}

void ChipPublishingSm::tableWritten(const ZlTableCounter& info, ZelId::ZelPipeId pipe) {
   const Table* const table = dropTable(info);
   if (table == nullptr) {
      return;
   }
   const auto point = static_cast<ZlDrop::Point>(table - drops_.data());
   const auto isMeant = [&](U16 devicePort) {
      return pipe == ZelId::ZelPipeId::allPipes() || pipe == ZlPort::pipeOf(devicePort);
   };
   publisher_->drops().forEachAt(chip_.deviceId(), isMeant, [&](const Pelt::IntfId& intf, auto& counted) {
      for (U32 reason = 0; reason < ZlDrop::reasonsPerPort; ++reason) {
         counted.zeroed(IntfDropCounters::place(point, reason));
      }
      publisher_->tried(intf, [&] { publisher_->drops().publish(intf); });
   });
}

void ChipPublishingSm::healthIs(const ChipHealth& health) {
   publisher_->healthIs(chipName_, chip_.deviceId(), chip_.life(), health);
}

void ChipPublishingSm::publishPlaces(const Interface::EthPhyIntfStatusDir* directory) {
   Silo::Interface::IntfPlace place;
   chipName_.text().copy(place.chip.data(), place.chip.size() - 1);
   place.device = chip_.deviceId();
   for (const ChipAccess::Port& port : chip_.ports()) {
      const U64* const speed = directory != nullptr ? directory->speed().find(port.intf) : nullptr;
      place.devicePort = port.devicePort;
      place.speed = speed != nullptr ? *speed : 0;
      publisher_->placeIs(port.intf, place);
   }
}

void ChipPublishingSm::withdraw() {
   for (const Pelt::IntfId& pipe : pipeNames_) {
      publisher_->pipeWithdrawn(pipe);
   }
   publisher_->chipWithdrawn(chipName_);
}

} // namespace ZelCounter

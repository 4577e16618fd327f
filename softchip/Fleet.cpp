// Keeps the chips and answers requests.
#include "softchip/Fleet.h"

#include "kiln/Assert.h"

#include <atomic>
#include <stdexcept>
#include <string>

namespace SoftChip {

namespace {

using Lock = std::lock_guard<std::recursive_mutex>;

std::atomic<Fleet*> theFleet{nullptr};

} // namespace

Fleet::Fleet(const Kiln::String& hardwareFile)
     : hardware_(hardwareFile), completions_([this](const Completion& completion) { deliver(completion); }) {
   KILN_ASSERT(instance() == nullptr);
   theFleet.store(this);
}

Fleet::~Fleet() {
   // While the entry points still find the fleet: callbacks read tables and make requests.
   completions_.shutDown();
   theFleet.store(nullptr);
}

Fleet* Fleet::instance() noexcept {
   return theFleet.load();
}

Chip& Fleet::chipAdd(const ChipConfig& wanted) {
   ChipConfig config = wanted;
   if (!config.program) {
      config.program = P4Program::standard();
   }
   const Lock lock(sdkLock_);
   if (config.deviceId >= chips_.size()) {
      throw std::invalid_argument("no device " + std::to_string(config.deviceId) + ": expected 0 to 7");
   }
   if (config.pipes < 1 || config.pipes > ZlPort::maxPipes) {
      throw std::invalid_argument("a chip of " + std::to_string(config.pipes) + " pipes: expected 1 to 4");
   }
   if (chips_[config.deviceId] || chip(config.name) != nullptr) {
      throw std::invalid_argument("device " + std::to_string(config.deviceId) + " or the name " +
                                  config.name + " is in use");
   }
   const std::span<U64> hardware =
        hardware_.regionIs(config.deviceId, Chip::hardwareLayout(config), Chip::hardwareWords(config));
   chips_[config.deviceId] = std::make_unique<Chip>(config, nextSerial_++, sdkLock_, hardware);
   return *chips_[config.deviceId];
}

void Fleet::chipDel(U8 deviceId) {
   const Lock lock(sdkLock_);
   if (chip(deviceId) != nullptr) {
      // The chip before its memory, which it points to.
      chips_[deviceId] = nullptr;
      hardware_.regionDel(deviceId);
   }
}

void Fleet::chipRestart(U8 deviceId, bool keepsCounters) {
   const Lock lock(sdkLock_);
   if (Chip* const restarted = chip(deviceId)) {
      restarted->restart(nextSerial_++, keepsCounters);
   }
}

Chip* Fleet::chip(unsigned deviceId) const {
   const Lock lock(sdkLock_);
   return chipAt(static_cast<int>(deviceId));
}

Chip* Fleet::chip(const Kiln::String& name) const {
   const Lock lock(sdkLock_);
   for (const auto& candidate : chips_) {
      if (candidate && candidate->name() == name) {
         return candidate.get();
      }
   }
   return nullptr;
}

std::vector<Chip*> Fleet::chips() const {
   const Lock lock(sdkLock_);
   std::vector<Chip*> all;
   for (const auto& candidate : chips_) {
      if (candidate) {
         all.push_back(candidate.get());
      }
   }
   return all;
}

int Fleet::startRead(EntryPoint entryPoint, PipeManager::Kind kind, U32 device, U16 pipe, U32 tableHandle,
                     ZelCountersIntf::ReadBuffer* buffer) {
   endStartedRead();
   const int status = onChip(entryPoint, static_cast<int>(device), [&](Chip& target) {
      return target.tables().readAll(kind, tableHandle, pipe, &readValues_);
   });
   *buffer = {&readValues_, readNumber_};
   return status;
}

void Fleet::endStartedRead() {
   ++readNumber_;
   const Lock lock(sdkLock_);
   readValues_ = {};
}

int Fleet::endRead(EntryPoint entryPoint) {
   // Even if the end is made to fail: its buffer is of no use after it.
   endStartedRead();
   return faults_.next(entryPoint);
}

// Gives up the SDK's lock before the callback: that takes the activity lock, whose holders wait for the SDK's lock, and
// may make new requests.
void Fleet::deliver(const Completion& completion) {
   bf_rmon_counter_array_t counters{};
   {
      const Lock lock(sdkLock_);
      Chip* const target = chipAt(completion.device);
      // For a chip that is gone the counters stay zero: its successor's would pass for its own.
      if (target != nullptr && target->serial() == completion.chipSerial) {
         if (completion.macCallback != nullptr) {
            target->readMac(completion.portOrPipe, counters);
         } else {
            target->tables().sync(completion.tableHandle, completion.portOrPipe);
         }
      }
   }
   if (completion.macCallback != nullptr) {
      completion.macCallback(completion.device, completion.portOrPipe, &counters, completion.cookie);
   } else {
      completion.syncCallback(completion.device, completion.cookie);
   }
}

} // namespace SoftChip

// The software chips of the process and their SDK: what the SDK's entry points reach.
#pragma once

#include "softchip/Chip.h"
#include "softchip/Completions.h"
#include "softchip/Faults.h"
#include "softchip/HardwareMemory.h"
#include "zl/ZelCountersIntf.h"

#include <array>
#include <memory>

namespace SoftChip {

// One at a time in a process: while it lives, the SDK's entry points work on it. It completes on the activity
// manager's clock of when it was made. Made and destroyed on the
// activity thread; the chips' operations and the SDK's are for any thread. Destroying it delivers what is
// outstanding, so not under the activity lock.
class Fleet {
 public:
   // With a path, hardware counters live in that file; see HardwareMemory for what may be thrown.
   explicit Fleet(const Kiln::String& hardwareFile = {});
   Fleet(const Fleet&) = delete;
   Fleet& operator=(const Fleet&) = delete;
   ~Fleet();

   // Null when there is none.
   static Fleet* instance() noexcept;

   // A device id above 7, an id or name that is in use, or pipes other than 1 to 4 are a
   // std::invalid_argument. The reference is good until chipDel.
   Chip& chipAdd(const ChipConfig& wanted);
   // The chip is taken out: its counters are gone, and what was asked of it and is still outstanding
   // completes with zeros.
   void chipDel(U8 deviceId);
   // Null when there is none.
   Chip* chip(unsigned deviceId) const;
   Chip* chip(const Kiln::String& name) const;
   std::vector<Chip*> chips() const; // by device id

   Faults& faults() { return faults_; }
   Completions& completions() { return completions_; }

   // An entry point's way to the chip: `operation(Chip&)` runs under the SDK's lock and tells the status. A
   // planned fault, or a device that there isn't, tells it instead.
   template <class Operation>
   int onChip(EntryPoint entryPoint, int device, Operation operation) {
      const int fault = faults_.next(entryPoint);
      const std::lock_guard lock(sdkLock_);
      Chip* const target = chipAt(device);
      return fault != 0 ? fault : target == nullptr ? statusInvalidArguments : operation(*target);
   }

   // A started read of a whole table: one at a time, as a new one ends the one before. What is read is a copy
   // of what the software copy held at the start. Belongs to the activity thread.
   int startRead(EntryPoint entryPoint, PipeManager::Kind kind, U32 device, U16 pipe, U32 tableHandle,
                 ZelCountersIntf::ReadBuffer* buffer);
   int readStarted(EntryPoint entryPoint, const ZelCountersIntf::ReadBuffer& buffer, U32 slot,
                   CounterValue* value) {
      const int fault = faults_.next(entryPoint);
      if (fault != 0) {
         return fault;
      }
      if (buffer.table != readValues_.data() || buffer.position != readNumber_ ||
          slot >= readValues_.size()) {
         return statusInvalidArguments;
      }
      *value = readValues_[slot];
      return statusOk;
   }
   int endRead(EntryPoint entryPoint);

   // Accepts the request when `operation` tells 0; it may complete it with what only the chip knows.
   template <class Operation>
   int request(EntryPoint entryPoint, Completion completion, Operation operation) {
      const int status = onChip(entryPoint, completion.device, [&](Chip& target) {
         completion.chipSerial = target.serial();
         return operation(target);
      });
      if (status == statusOk) {
         completions_.accept(completion);
      }
      return status;
   }

 private:
   void deliver(const Completion& completion);
   // Under the SDK's lock; null when there is none.
   Chip* chipAt(int device) const {
      const auto place = static_cast<std::size_t>(device); // a negative one is out of range too
      return place < chips_.size() ? chips_[place].get() : nullptr;
   }

   mutable std::recursive_mutex sdkLock_;
   HardwareMemory hardware_;
   std::array<std::unique_ptr<Chip>, HardwareMemory::regionLimit> chips_;
   U64 nextSerial_ = 1;
   Faults faults_;
   Completions completions_;
   std::vector<CounterValue> readValues_; // of the started read
   U64 readNumber_ = 0;
};

} // namespace SoftChip

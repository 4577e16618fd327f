// The software chips of the process and their SDK, behind the SDK's entry points.
#pragma once

#include "softchip/Chip.h"
#include "softchip/Completions.h"
#include "softchip/Faults.h"
#include "softchip/HardwareMemory.h"
#include "zl/ZelCountersIntf.h"

#include <array>
#include <memory>

namespace SoftChip {

// One at a time in a process: while it lives, the SDK's entry points work on it. Completes on the clock of the activity
// manager that was there when it was made. Made and destroyed on the activity thread; the operations of chips and SDK
// are for any thread. Not to be destroyed under the activity lock, since that delivers what is outstanding.
class Fleet {
 public:
   // With a path, hardware counters live in that file; see HardwareMemory for what may be thrown.
   explicit Fleet(const Kiln::String& hardwareFile = {});
   Fleet(const Fleet&) = delete;
   Fleet& operator=(const Fleet&) = delete;
   ~Fleet();

   // Null if there is none.
   static Fleet* instance() noexcept;

   // Throws std::invalid_argument for a device id above 7, an id or name in use, or a number of pipes other than 1 to
   // 4. The reference is valid until chipDel.
   Chip& chipAdd(const ChipConfig& wanted);
   // The chip is removed. Its counters are gone, and outstanding requests complete with zeros.
   void chipDel(U8 deviceId);
   // The chip's driver begins anew, with the hardware's counters kept or at 0. Outstanding requests complete as those of
   // a removed chip. Does nothing if there is no such chip.
   void chipRestart(U8 deviceId, bool keepsCounters);
   // Null when there is none.
   Chip* chip(unsigned deviceId) const;
   Chip* chip(const Kiln::String& name) const;
   std::vector<Chip*> chips() const; // by device id

   HardwareMemory& hardware() { return hardware_; }
   Faults& faults() { return faults_; }
   Completions& completions() { return completions_; }

   // For entry points: runs `operation(Chip&)` under the SDK's lock and returns its status, or that of a planned fault
   // or of an unknown device.
   template <class Operation>
   int onChip(EntryPoint entryPoint, int device, Operation operation) {
      const int fault = faults_.next(entryPoint);
      const std::lock_guard lock(sdkLock_);
      Chip* const target = chipAt(device);
      return fault != 0 ? fault : target == nullptr ? statusInvalidArguments : operation(*target);
   }

   // A started read of a whole table. A new one ends the one before. Reads give the software copy's values as they were
   // at the start. Activity thread.
   int startRead(EntryPoint entryPoint, PipeManager::Kind kind, U32 device, U16 pipe, U32 tableHandle,
                 ZelCountersIntf::ReadBuffer* buffer);
   int readStarted(EntryPoint entryPoint, const ZelCountersIntf::ReadBuffer& buffer, U32 slot,
                   CounterValue* value) {
      const int fault = faults_.next(entryPoint);
      if (fault != 0) {
         return fault;
      }
      if (buffer.table != &readValues_ || buffer.position != readNumber_ || !readValues_.has(slot)) {
         return statusInvalidArguments;
      }
      *value = readValues_.at(slot);
      return statusOk;
   }
   int endRead(EntryPoint entryPoint);

   // Accepts the request if `operation` returns 0.
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
   void endStartedRead();
   // Under the SDK's lock; null if there is none.
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
   TableValues readValues_; // of the started read
   U64 readNumber_ = 0;     // of the started read; a buffer with another one is out of date
};

} // namespace SoftChip

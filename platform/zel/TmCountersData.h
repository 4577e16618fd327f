// Traffic-manager counters by device and pipe.
#pragma once

#include "kiln/Accessors.h"
#include "zel/ZelId.h"

#include <array>

namespace ZelQos {

// One counter, as it was last read.
struct TmCounter {
   U64 count = 0; // packets or buffer cells
   U64 bytes = 0;
   int status = 0;      // of the latest read; the values are from the latest successful one
   bool isRead = false; // a read has succeeded
   bool operator==(const TmCounter&) const noexcept = default;
};

// The counters of one pipe, by the SDK's number of the counter type; types that nobody reads stay zero.
constexpr std::size_t tmCounterTypes = 9;
using TmPipeCounters = std::array<TmCounter, tmCounterTypes>;

class TmDeviceCounters : public Kiln::PtrInterface {
 public:
   explicit TmDeviceCounters(ZelId::ZelDevId devId) : devId_(devId) {}
   ZelId::ZelDevId devId() const { return devId_; }

   const Kiln::OrderedMap<U16, TmPipeCounters>& countersByPipe() const { return countersByPipe_; }
   // The pipe's entry; a missing one is created, all zero.
   TmPipeCounters& countersByPipeIs(U16 pipe) {
      if (!countersByPipe_.contains(pipe)) {
         countersByPipe_.set(pipe, {});
      }
      return *countersByPipe_.find(pipe);
   }
   void countersByPipeDelAll() { countersByPipe_ = {}; }
   // Copies another device's counters.
   void countersAre(const TmDeviceCounters& other) { countersByPipe_ = other.countersByPipe_; }

 private:
   ZelId::ZelDevId devId_;
   Kiln::OrderedMap<U16, TmPipeCounters> countersByPipe_;
};

class TmCountersData : public Kiln::PtrInterface {
 public:
   const Kiln::OrderedMap<ZelId::ZelDevId, Kiln::Ptr<TmDeviceCounters>>& countersByDevId() const {
      return countersByDevId_;
   }
   // The device's entry; a missing one is created.
   const Kiln::Ptr<TmDeviceCounters>& countersByDevIdIs(ZelId::ZelDevId devId) {
      if (!countersByDevId_.contains(devId)) {
         countersByDevId_.set(devId, Kiln::allocate<TmDeviceCounters>(devId));
      }
      return *countersByDevId_.find(devId);
   }

 private:
   Kiln::OrderedMap<ZelId::ZelDevId, Kiln::Ptr<TmDeviceCounters>> countersByDevId_;
};

} // namespace ZelQos

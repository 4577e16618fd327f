// Traffic-manager counters by device and pipe.
#pragma once

#include "kiln/Accessors.h"
#include "zel/ZelId.h"

namespace ZelQos {

// The traffic-manager counters of one pipe.
struct TmPipeCounters {
   bool operator==(const TmPipeCounters&) const noexcept = default;
};

class TmDeviceCounters : public Kiln::PtrInterface {
 public:
   explicit TmDeviceCounters(ZelId::ZelDevId devId) : devId_(devId) {}
   ZelId::ZelDevId devId() const { return devId_; }

   const Kiln::OrderedMap<U16, TmPipeCounters>& countersByPipe() const { return countersByPipe_; }
   // Creates the pipe's entry, all zero, when it is missing.
   void countersByPipeIs(U16 pipe) {
      if (!countersByPipe_.contains(pipe)) {
         countersByPipe_.set(pipe, {});
      }
   }

 private:
   ZelId::ZelDevId devId_;
   Kiln::OrderedMap<U16, TmPipeCounters> countersByPipe_;
};

class TmCountersData : public Kiln::PtrInterface {
 public:
   const Kiln::OrderedMap<ZelId::ZelDevId, Kiln::Ptr<TmDeviceCounters>>& countersByDevId() const {
      return countersByDevId_;
   }
   // The device's entry, created when missing.
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

// The forwarding layer's subinterface counters reactor.
#pragma once

#include "kiln/TimerWheel.h"
#include "vex/VexHelper.h"

namespace Vex {

class SubIntfCountersSm : public Kiln::Entity {
 public:
   SubIntfCountersSm(Kiln::Ptr<Oxbow::TimerWheel> timerWheel,
                     Kiln::Ptr<VexHelper::VexHelperSubIntfCountersSm> helper)
        : timerWheel_(std::move(timerWheel)), helper_(std::move(helper)) {}

   // Every chip was asked for its counters: the subinterfaces are due.
   virtual void updateCounters() {}

 private:
   Kiln::Ptr<Oxbow::TimerWheel> timerWheel_;
   Kiln::Ptr<VexHelper::VexHelperSubIntfCountersSm> helper_;
};

} // namespace Vex

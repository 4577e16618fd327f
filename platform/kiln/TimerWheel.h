// Oxbow::TimerWheel: many coarse timers on one clock. Time is cut into ticks, and a timer waits in the slot of its
// tick. A tick serves a bounded number of timers and leaves the rest to the next ticks, so that thousands that are due
// together do not hold up the activity thread.
#pragma once

#include "kiln/Timer.h"

#include <list>
#include <vector>

namespace Oxbow {

class TimerWheel : public Kiln::PtrInterface {
 public:
   // Embedded in its owner; holds the wheel.
   class Timer {
    public:
      explicit Timer(Kiln::Ptr<TimerWheel> wheel) : wheel_(std::move(wheel)) {}
      Timer(const Timer&) = delete;
      Timer& operator=(const Timer&) = delete;
      virtual ~Timer() { wheel_->disarm(*this); }

      bool isArmed() const { return armed_; }
      // Fires once, `delay` seconds after the wheel's last tick (after now, if the wheel stands still), rounded up to
      // whole ticks: at least one, at most slotCount - 1. Counting from the tick, a handler that arms its timer again
      // with the same delay keeps its period, however late it runs. Throws std::invalid_argument for NaN.
      void delayIs(double delay) { wheel_->arm(*this, delay); }
      void disarm() { wheel_->disarm(*this); }

      // The timer is already disarmed; the handler may arm or destroy it.
      virtual void onTime() = 0;

    private:
      friend class TimerWheel;
      Kiln::Ptr<TimerWheel> wheel_;
      bool armed_ = false;
      std::list<Timer*>* slot_ = nullptr;
      std::list<Timer*>::iterator place_;
   };

   // tickMs: length of a tick in milliseconds. perTick: how many timers a tick serves at most. firstSlot: the slot that
   // the wheel starts from. slotCount: slots of the wheel.
   TimerWheel(const Kiln::Ptr<const Kiln::Clock>& clock, U32 tickMs, U32 perTick, U32 firstSlot,
              U32 slotCount);

 private:
   double tickTime() const;
   void arm(Timer& timer, double delay);
   void disarm(Timer& timer);
   void turn();
   void handleTick();

   U32 tickMs_;
   U32 perTick_;
   std::size_t current_;
   std::vector<std::list<Timer*>> slots_;
   std::list<Timer*> due_;  // left over from earlier ticks
   std::list<Timer*> free_; // list nodes of disarmed timers, used again
   std::size_t armedCount_ = 0;
   bool turning_ = false;
   double turnStart_ = 0.0; // when the wheel began to turn
   U64 turnTicks_ = 0;      // ticks from then to the next one
   Kiln::Timer<TimerWheel> tick_;
};

} // namespace Oxbow

// A clock notifiee for members: calls a member function of its owner when its time has come.
#pragma once

#include "kiln/Clock.h"

namespace Kiln {

// A member of its owner, which it calls on the activity thread:
//
//    class Poller {
//       explicit Poller(Ptr<const Clock> clock) : clock_(std::move(clock), this, &Poller::handleClock) {}
//       void handleClock();
//       Timer<Poller> clock_;
//    };
//
// Armed, moved and disarmed as every notifiee of a clock; disarmed before the handler runs, so that the handler
// may arm it again, throw, or destroy the owner. The handler may be private.
template <class Owner>
class Timer final : public Clock::Notifiee {
 public:
   using Handler = void (Owner::*)();

   Timer(Ptr<const Clock> clock, Owner* owner, Handler handler)
        : Notifiee(std::move(clock)), owner_(owner), handler_(handler) {}

   void onTime() override { (owner_->*handler_)(); }

 private:
   Owner* owner_;
   Handler handler_;
};

} // namespace Kiln

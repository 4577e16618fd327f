// Clocks: a handler that runs at a set time on the activity thread.
#pragma once

#include "kiln/Entity.h"

#include <functional>
#include <limits>
#include <mutex>
#include <set>

namespace Kiln {

// The expiry of a notifiee that is not armed.
constexpr double never = std::numeric_limits<double>::infinity();

// The notifiees of one clock fire in the order of their times; those of equal times in the order in which they were
// armed.
class Clock : public Entity {
 public:
   class Notifiee;

 private:
   class Expiry {
    public:
      Expiry(double t, U64 s, Notifiee* n) : time(t), sequence(s), notifiee(n) {}
      bool operator<(const Expiry& other) const {
         return time != other.time ? time < other.time : sequence < other.sequence;
      }
      double time;
      U64 sequence;
      Notifiee* notifiee;
   };
   using Queue = std::set<Expiry>;

 public:
   // Embedded in its reactor and destroyed with it; holds its clock. It is disarmed before onTime runs, so that the
   // handler may arm it again, throw, or destroy it. Kiln::Timer is one that calls a member function.
   class Notifiee {
    public:
      explicit Notifiee(Ptr<const Clock> clock);
      Notifiee(const Notifiee&) = delete;
      Notifiee& operator=(const Notifiee&) = delete;
      virtual ~Notifiee();

      const Ptr<const Clock>& clock() const { return clock_; }
      // Seconds of Kiln::System::currentTime(); never (+infinity) when not armed. Any thread.
      double timeMin() const;
      bool isArmed() const { return timeMin() <= std::numeric_limits<double>::max(); }
      // Arms, moves or (with never) disarms. Throws std::invalid_argument for NaN. Any thread; wakes the sleeping
      // loop.
      void timeMinIs(double time);

      virtual void onTime() = 0;

    private:
      friend class Clock;

      Ptr<const Clock> clock_;
      double timeMin_ = never;
      U64 sequence_ = 0;
      Queue::node_type spare_; // the queue's node, kept while disarmed: only the first arming allocates
   };

   ~Clock() override;

   // Runs the earliest notifiee that is due at `time` and was armed before `sequenceLimit`. False if there is none.
   bool fireNext(double time, U64 sequenceLimit) const;
   // The next arming gets this number or a later one.
   U64 nextSequence() const;
   double earliestExpiry() const;
   std::size_t armedCount() const; // any thread
   // `wake` is called when the earliest expiry has moved forward, under the clock's own lock: it must only signal.
   void wakeIs(std::function<void()> wake) const;

 private:
   void arm(Notifiee& notifiee, double time) const;
   void disarm(Notifiee& notifiee) const;

   mutable std::mutex mutex_;
   mutable Queue queue_;
   mutable U64 nextSequence_ = 0;
   mutable std::function<void()> wake_;
};

} // namespace Kiln

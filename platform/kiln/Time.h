// The one source of time. Real time is the machine's monotonic clock, which other processes of the same boot
// share; simulated time stands still until its driver moves it. Both count seconds.
#pragma once

#include "kiln/Ptr.h"

#include <string_view>

namespace Kiln {

class TimeSource : public PtrInterface {
 public:
   virtual double now() const = 0;
   virtual bool isSimulated() const = 0;
};

// CLOCK_MONOTONIC.
class RealTime : public TimeSource {
 public:
   double now() const override;
   bool isSimulated() const override { return false; }
};

// Starts at 0. Only the driver calls nowIs. charge() may be called while a handler runs, to say that its work took
// time.
class SimulatedTime : public TimeSource {
 public:
   double now() const override { return now_.load(std::memory_order_relaxed); }
   bool isSimulated() const override { return true; }
   // Time never runs back: an earlier time is ignored.
   void nowIs(double seconds);
   void charge(double seconds) { nowIs(now() + seconds); }

 private:
   std::atomic<double> now_{0.0};
};

namespace System {

// Real time, unless another source is set; set it before starting threads that ask. Any thread may read.
void timeSourceIs(Ptr<TimeSource> source);
Ptr<TimeSource> timeSource();
double currentTime();
// CLOCK_MONOTONIC, whatever the source is.
double monotonicTime();
// Seconds since 1970, UTC. Simulated time begins there, so that a simulation always has the same dates.
double unixTime();

} // namespace System

// For an interval that somebody sets. Throws std::range_error, naming the attribute, unless it is above 0 and finite.
void requirePositiveSeconds(std::string_view attribute, double seconds);

} // namespace Kiln

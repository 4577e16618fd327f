// Real and simulated time, and the choice between them.
#include "kiln/Time.h"

#include <cmath>
#include <ctime>
#include <stdexcept>

namespace Kiln {

namespace {

// Readers on any thread use the raw pointer; a Ptr's count is not thread-safe in every mode. held() keeps the object.
std::atomic<TimeSource*> active{nullptr};

Ptr<TimeSource>& held() {
   // Never freed: logs ask for the time while statics are destroyed.
   static auto* source = new Ptr<TimeSource>;
   return *source;
}

double timeOf(clockid_t clock) {
   timespec now{};
   clock_gettime(clock, &now);
   return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
}

} // namespace

double RealTime::now() const {
   return System::monotonicTime();
}

void SimulatedTime::nowIs(double seconds) {
   // Never backward: a handler may have been charged beyond the expiry that the driver sets next.
   if (seconds > now_.load(std::memory_order_relaxed)) {
      now_.store(seconds, std::memory_order_relaxed);
   }
}

namespace System {

void timeSourceIs(Ptr<TimeSource> source) {
   // First, since the old source may end with the next line.
   active.store(source.ptr(), std::memory_order_release);
   held() = std::move(source);
}

Ptr<TimeSource> timeSource() {
   if (!held()) {
      timeSourceIs(allocate<RealTime>());
   }
   return held();
}

double currentTime() {
   const TimeSource* source = active.load(std::memory_order_acquire);
   return source != nullptr ? source->now() : monotonicTime();
}

double monotonicTime() {
   return timeOf(CLOCK_MONOTONIC);
}

double unixTime() {
   const TimeSource* source = active.load(std::memory_order_acquire);
   return source != nullptr && source->isSimulated() ? source->now() : timeOf(CLOCK_REALTIME);
}

} // namespace System

void requirePositiveSeconds(std::string_view attribute, double seconds) {
   if (!std::isfinite(seconds) || seconds <= 0.0) {
      throw std::range_error(String(attribute) + " must be a positive number of seconds");
   }
}

} // namespace Kiln

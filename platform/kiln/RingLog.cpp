// The bounded store behind KILN_RINGLOG.
#include "kiln/RingLog.h"

#include "kiln/Time.h"

#include <cstdio>

namespace Kiln {

RingLog& RingLog::instance() {
   static auto* log = new RingLog; // never freed: written to while statics are destroyed
   return *log;
}

void RingLog::lineIs(String text) {
   char time[32];
   std::snprintf(time, sizeof time, "%.6f ", System::currentTime());
   const std::lock_guard lock(mutex_);
   if (lines_.size() == lineLimit) {
      lines_.pop_front();
   }
   lines_.push_back(time + std::move(text));
}

std::vector<String> RingLog::lines() const {
   const std::lock_guard lock(mutex_);
   return {lines_.begin(), lines_.end()};
}

void RingLog::lineDelAll() {
   const std::lock_guard lock(mutex_);
   lines_.clear();
}

} // namespace Kiln

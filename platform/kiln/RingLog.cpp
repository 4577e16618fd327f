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
   const std::lock_guard lock(mutex_);
   if (lines_.size() == lineLimit) {
      lines_.pop_front();
   }
   lines_.push_back({System::currentTime(), std::move(text)});
}

std::vector<RingLog::Entry> RingLog::entries() const {
   const std::lock_guard lock(mutex_);
   return {lines_.begin(), lines_.end()};
}

std::vector<String> RingLog::lines() const {
   std::vector<String> lines;
   for (const Entry& entry : entries()) {
      char time[32];
      std::snprintf(time, sizeof time, "%.6f ", entry.time);
      lines.push_back(time + entry.text);
   }
   return lines;
}

void RingLog::lineDelAll() {
   const std::lock_guard lock(mutex_);
   lines_.clear();
}

} // namespace Kiln

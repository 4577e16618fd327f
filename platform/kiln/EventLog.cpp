// Hands events over to the sink.
#include "kiln/EventLog.h"

#include <utility>

namespace Kiln {

EventLog& EventLog::instance() {
   static auto* log = new EventLog; // never freed: events come while statics are destroyed
   return *log;
}

void EventLog::record(const Event& event) const {
   Sink sink;
   {
      const std::lock_guard lock(mutex_);
      sink = sink_;
   }
   if (sink) {
      sink(event);
   }
}

EventLog::Sink EventLog::sinkIs(Sink sink) {
   const std::lock_guard lock(mutex_);
   return std::exchange(sink_, std::move(sink));
}

} // namespace Kiln

// Where failed updates are logged.
#include "counters/chip/Guarded.h"

#include "counters/chip/ZelCountersTrace.h"
#include "kiln/RingLog.h"

namespace ZelCounter {

void logFailedUpdate(const char* what, const char* why) {
   KILN_RINGLOG_TRACE(0, what << " failed: " << why);
}

} // namespace ZelCounter

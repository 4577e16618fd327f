// The handle has the per-chip object's name, since operators switch the tracing of a chip on as one.
#include "counters/chip/ZelCountersTrace.h"

namespace ZelCounter {

Kiln::TraceHandle traceHandle("ZelCounters");

} // namespace ZelCounter

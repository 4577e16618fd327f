// Named after the per-chip object, whose parts trace under its name.
#include "counters/chip/ZelCountersTrace.h"

namespace ZelCounter {

Kiln::TraceHandle traceHandle("ZelCounters");

} // namespace ZelCounter

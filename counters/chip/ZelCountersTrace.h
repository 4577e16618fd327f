// The trace handle that the sources of the per-chip object and its parts share.
#pragma once

#include "kiln/Trace.h"

namespace ZelCounter {

extern Kiln::TraceHandle traceHandle;

} // namespace ZelCounter

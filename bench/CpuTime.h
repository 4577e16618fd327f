// The clock of the benchmarks' ratios.
#pragma once

#include <ctime>

namespace Bench {

// CPU time of this thread in seconds, so that what else the machine does counts for neither side.
inline double cpuSeconds() {
   timespec now{};
   clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
   return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
}

} // namespace Bench

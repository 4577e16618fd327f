// The clock of the benchmarks' ratios.
#pragma once

#include <ctime>

namespace Bench {

// The CPU time of this thread in seconds. Unlike elapsed time, it leaves out what else the machine does.
inline double cpuSeconds() {
   timespec now{};
   clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
   return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
}

} // namespace Bench

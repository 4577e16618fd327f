// The library's messages for the operator.
#pragma once

#include "kiln/OperatorLog.h"

namespace ZelCounter {

extern const Kiln::LogMessage ZEL_COUNTERS_OVERFLOW_ERROR;          // interface name
extern const Kiln::LogMessage ZEL_COUNTERS_COUNTER_RESOURCE_FULL;   // VLAN
extern const Kiln::LogMessage ZEL_COUNTERS_COUNTER_RESOURCE_NORMAL; // VLAN
extern const Kiln::LogMessage ZEL_COUNTERS_CHIP_SILENT;             // chip name, what is read
extern const Kiln::LogMessage ZEL_COUNTERS_CHIP_ANSWERS;            // chip name

} // namespace ZelCounter

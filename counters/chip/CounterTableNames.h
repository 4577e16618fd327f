// The counter tables and match tables that the library knows by name, as the P4 program names them. The name of a
// match table and that of its counters may differ by two letters: qosPolicyDropCounter has qosPolicyDropCount.
#pragma once

#include "kiln/Types.h"

namespace ZelCounter::TableNames {

inline const Kiln::String pdpClassCount = "pdpClassCount";
inline const Kiln::String egressPortQueueCount = "egressPortQueueCount";
inline const Kiln::String ingL2DomainCounters = "ingL2DomainCounters";
inline const Kiln::String egrL2DomainCounters = "egrL2DomainCounters";
inline const Kiln::String l2DmacClassifyCount = "l2DmacClassifyCount";
inline const Kiln::String qosPolicyDropCount = "qosPolicyDropCount";

// Match tables.
inline const Kiln::String qosPolicyDropCounter = "qosPolicyDropCounter";
inline const Kiln::String queueCounters = "queueCounters";
inline const Kiln::String pdpPolicy = "pdpPolicy";
inline const Kiln::String l2DmacClassify = "l2DmacClassify";

} // namespace ZelCounter::TableNames

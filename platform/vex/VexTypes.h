// The forwarding layer's records.
#pragma once

#include "kiln/Ptr.h"

namespace VexTypes {

// The kinds of counters that the counters reactor is told of.
enum class CounterType : U32 {
   port = 1,     // a port's MAC counters
   vlanIntf = 3, // a VLAN interface's counters
};

// The counters of one interface.
class IntfCounters : public Kiln::PtrInterface {};

} // namespace VexTypes

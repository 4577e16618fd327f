// Interfaces in the order of their port numbers.
#pragma once

#include "kiln/Accessors.h"
#include "zel/Pelt.h"

namespace ZelCounter {

class PortSorter {
 public:
   KILN_ORDERED_MAP(U32, Pelt::IntfId, entryId)
};

} // namespace ZelCounter

// The range checks of the id types.
#include "zel/ZelId.h"

#include <stdexcept>

namespace ZelId {

PortIndex::PortIndex(U16 value) : value_(value) {
   if (value > invalid) {
      throw std::range_error("PortIndex::value < PortIndex::min or > PortIndex::invalid not allowed");
   }
}

} // namespace ZelId

// The range check of a PDP class.
#include "zel/PdpClasses.h"

#include <stdexcept>

namespace ZelQos {

PdpClassId::PdpClassId(U32 value) : value_(static_cast<U8>(value)) {
   if (value > max) {
      throw std::range_error("PDP class " + std::to_string(value) + " is above " + std::to_string(max));
   }
}

} // namespace ZelQos

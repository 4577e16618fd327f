// The chip's program-dependent (PD) interface: match entries by their text.
#pragma once

#include "kiln/Ptr.h"

namespace ZlPd {

class ZlPdIntf : public Kiln::PtrInterface {
 public:
   // Describes what a match entry matches, for people.
   virtual Kiln::String counterDecodeMatch(U32 session, U32 device, U32 tableHandle, S32 entry) const = 0;
};

} // namespace ZlPd

// The status of one chip, kept by the platform.
#pragma once

#include "kiln/Accessors.h"
#include "kiln/Entity.h"
#include "zel/Pelt.h"

namespace ZelSlice {

// In this state a chip is up, and its tables take changes at once.
constexpr U32 chipStateUp = 8;

class ChipStatus : public Kiln::Entity {
 public:
   class Notifiee : public Kiln::NotifieeOf<ChipStatus> {
    public:
      using NotifieeOf::NotifieeOf;
      virtual void onState() {}
   };
   KILN_NOTIFIER

   KILN_ATTRIBUTE_NOTIFY(U32, state, onState, chipStateUp)
   // The chip has the pipes 0 to this one.
   KILN_ATTRIBUTE(U16, highestLogicalPipeId, 0)
   // The interfaces of the chip's ports, by device port number.
   KILN_HASH_MAP(U16, Pelt::IntfId, portToIntfId)
   // The internal interface that this chip serves; empty for none.
   KILN_ATTRIBUTE(Pelt::IntfId, internalIntf)
};

} // namespace ZelSlice

// What the forwarding layer's reactors share.
#pragma once

#include "kiln/Accessors.h"
#include "zel/Pelt.h"

namespace Vex {

class VexCommonSmData : public Kiln::PtrInterface {
 public:
   // The VLAN interfaces that exist; the value of a listed one is true.
   KILN_HASH_MAP(Pelt::IntfId, bool, vlanIntf)
};

} // namespace Vex

// The profile with which a chip was brought up.
#pragma once

#include "kiln/Types.h"

namespace ZelDriver {

struct ZelDevProfile {
   Kiln::String chipTypeName; // the key of the system status's chip capabilities
};

} // namespace ZelDriver

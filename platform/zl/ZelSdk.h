// The one SDK session of the process and the SDK's run flag.
#pragma once

#include "kiln/Types.h"

// The session handle: the same value as ZelSdk::getZelSessionHdl(), and as the session id that chips are added with.
extern U32 sess_hdl;

// Nonzero while the agent's state machines run: the agent sets it to 1 before the first chip is added. In simulation, SDK callbacks return early once it is 0.
// Read and written under the activity lock.
extern int smRunning;

namespace ZelSdk {

// Defined by the SDK, or the software chip.
U32 getZelSessionHdl();

} // namespace ZelSdk

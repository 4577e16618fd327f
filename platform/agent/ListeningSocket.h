// The socket that an agent listens on.
#pragma once

#include "kiln/OwnedFd.h"
#include "kiln/Types.h"

namespace Agent {

// A socket under that path which only this user may open. Replaces a socket that a dead agent left. Throws
// std::runtime_error for a socket that answers, and for anything else of that name. Of several callers at once, one
// gets the path. Any thread.
Kiln::OwnedFd listenOn(const Kiln::String& path);

} // namespace Agent

// The socket that an agent listens on.
#pragma once

#include "kiln/OwnedFd.h"
#include "kiln/Types.h"

namespace Agent {

// A socket under that path which only this user may open. A socket that a dead
// agent left is replaced; one that answers, or anything else of that name, is a std::runtime_error. Of several
// that want a path at once, one gets it. Any thread.
Kiln::OwnedFd listenOn(const Kiln::String& path);

} // namespace Agent

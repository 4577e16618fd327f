// The socket that an agent listens on.
#pragma once

#include "kiln/OwnedFd.h"
#include "kiln/Types.h"

#include <optional>
#include <sys/types.h>

namespace Agent {

// A socket under that path which only this user may open, and the members of the group if there is one. Replaces a
// socket that a dead agent left. Throws std::runtime_error for a socket that answers, for anything else of that name,
// for one of another user's, for a folder in which others could put another there, and for a group that this user may
// not give a file to. Of several callers at once, one gets the path. Any thread.
Kiln::OwnedFd listenOn(const Kiln::String& path, std::optional<gid_t> group = {});

} // namespace Agent

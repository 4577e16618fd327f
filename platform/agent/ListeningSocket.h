// The socket that an agent listens on.
#pragma once

#include "kiln/Types.h"

#include <unistd.h>
#include <utility>

namespace Agent {

struct OwnedFd {
   explicit OwnedFd(int owned) : fd(owned) {}
   OwnedFd(const OwnedFd&) = delete;
   OwnedFd& operator=(const OwnedFd&) = delete;
   ~OwnedFd() {
      if (fd >= 0) {
         close(fd);
      }
   }
   int release() { return std::exchange(fd, -1); }
   int fd;
};

// A socket under that path which only this user may open; the caller owns the descriptor. A socket that a dead
// agent left is replaced; one that answers, or anything else of that name, is a std::runtime_error. Of several
// that want a path at once, one gets it. Any thread.
int listenOn(const Kiln::String& path);

} // namespace Agent

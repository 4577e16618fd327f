// A connection to an agent's command socket. It never waits without a limit.
#pragma once

#include "agent/CommandSocket.h"
#include "kiln/OwnedFd.h"

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/time.h>

namespace ZelTest {

class SocketClient {
 public:
   explicit SocketClient(const Kiln::String& path) : fd_(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
      const Agent::SocketAddress address(path);
      const timeval patience{20, 0};
      setsockopt(fd(), SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
      EXPECT_EQ(connect(fd(), address.any(), address.length()), 0);
   }

   void endSending() const { shutdown(fd(), SHUT_WR); }

 protected:
   int fd() const { return fd_.fd(); }

 private:
   Kiln::OwnedFd fd_;
};

} // namespace ZelTest

// A connection to an agent's command socket, for tests: it never waits for ever.
#pragma once

#include "agent/CommandSocket.h"

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

namespace ZelTest {

class SocketClient {
 public:
   explicit SocketClient(const Kiln::String& path) : fd_(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
      const Agent::SocketAddress address(path);
      const timeval patience{20, 0};
      setsockopt(fd_, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
      EXPECT_EQ(connect(fd_, address.any(), address.length()), 0);
   }
   SocketClient(const SocketClient&) = delete;
   SocketClient& operator=(const SocketClient&) = delete;
   ~SocketClient() { close(fd_); }

   void endSending() const { shutdown(fd_, SHUT_WR); }

 protected:
   int fd() const { return fd_; }

 private:
   int fd_;
};

} // namespace ZelTest

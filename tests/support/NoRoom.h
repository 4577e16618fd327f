// A disk that is full: while it lives, no file grows beyond a size.
#pragma once

#include <csignal>
#include <gtest/gtest.h>
#include <sys/resource.h>

namespace ZelTest {

class NoRoom {
 public:
   explicit NoRoom(rlim_t size) : former_(std::signal(SIGXFSZ, SIG_IGN)) { limitIs(size); }
   NoRoom(const NoRoom&) = delete;
   NoRoom& operator=(const NoRoom&) = delete;
   ~NoRoom() {
      limitIs(RLIM_INFINITY);
      std::signal(SIGXFSZ, former_);
   }

 private:
   static void limitIs(rlim_t size) {
      const rlimit limit{size, RLIM_INFINITY};
      EXPECT_EQ(setrlimit(RLIMIT_FSIZE, &limit), 0);
   }

   sighandler_t former_;
};

} // namespace ZelTest

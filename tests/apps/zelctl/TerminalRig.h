// A terminal for a test: types keys, reads the screen, and checks the terminal's mode afterwards.
#pragma once

#include "kiln/Types.h"

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <gtest/gtest.h>
#include <poll.h>
#include <pty.h>
#include <sys/ioctl.h>
#include <sys/wait.h>
#include <unistd.h>
#include <utmp.h>

namespace ZelTest {

// On a machine without pseudo-terminals its tests are skipped.
class TerminalRig : public testing::Test {
 protected:
   void SetUp() override {
      const winsize size{24, 80, 0, 0};
      if (openpty(&master_, &slave_, nullptr, nullptr, &size) != 0) {
         GTEST_SKIP() << "no pseudo-terminal is available: " << std::strerror(errno);
      }
      tcgetattr(slave_, &before_);
   }
   ~TerminalRig() override {
      if (child_ > 0) {
         kill(child_, SIGKILL);
         waitpid(child_, nullptr, 0);
      }
      for (const int fd : {master_, slave_}) {
         if (fd >= 0) {
            close(fd);
         }
      }
   }

   // Runs the function in a child process, at the terminal. The child exits with what the function returns.
   void start(const std::function<int()>& function) {
      child_ = fork();
      ASSERT_GE(child_, 0);
      if (child_ == 0) {
         close(master_);
         login_tty(slave_);
         setenv("TERM", "xterm", 1);
         setenv("PAGER", "", 1); // none, unless a test names one
         _exit(function());
      }
   }

   void type(const Kiln::String& keys) {
      ASSERT_EQ(write(master_, keys.data(), keys.size()), static_cast<ssize_t>(keys.size()));
   }

   void resize(unsigned short width, unsigned short height) {
      const winsize size{height, width, 0, 0};
      ASSERT_EQ(ioctl(master_, TIOCSWINSZ, &size), 0);
   }

   // Reads the output up to the text, and returns what came before it. Fails if the text does not come.
   Kiln::String shownBefore(const Kiln::String& text) {
      constexpr int patience = 20000;                       // milliseconds, enough for a busy machine
      constexpr std::size_t enough = std::size_t(1) << 20U; // bytes, in case a watch never shows the text
      while (seen_.find(text) == Kiln::String::npos) {
         pollfd ready{master_, POLLIN, 0};
         char bytes[4096];
         const bool isOut = seen_.size() > enough || poll(&ready, 1, patience) != 1;
         const ssize_t got = isOut ? -1 : read(master_, bytes, sizeof bytes);
         if (got <= 0) {
            ADD_FAILURE() << "no " << testing::PrintToString(text) << " in "
                          << testing::PrintToString(seen_.substr(0, enough / 256));
            return "";
         }
         seen_.append(bytes, static_cast<std::size_t>(got));
      }
      Kiln::String before = seen_.substr(0, seen_.find(text));
      seen_.erase(0, before.size() + text.size());
      return before;
   }

   void expect(const Kiln::String& text) { shownBefore(text); }

   // Expects this exit status, and the terminal's mode as it was before.
   void expectEnd(int expected) {
      int status = 0;
      ASSERT_EQ(waitpid(child_, &status, 0), child_);
      child_ = -1;
      EXPECT_TRUE(WIFEXITED(status));
      EXPECT_EQ(WEXITSTATUS(status), expected);
      termios after{};
      ASSERT_EQ(tcgetattr(slave_, &after), 0);
      EXPECT_EQ(after.c_lflag, before_.c_lflag);
      EXPECT_EQ(after.c_iflag, before_.c_iflag);
   }

   pid_t child_ = -1;
   Kiln::String seen_; // read, but not yet expected

 private:
   int master_ = -1;
   int slave_ = -1;
   termios before_{};
};

} // namespace ZelTest

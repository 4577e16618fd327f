// Forks and waits.
#include "tests/support/ChildProcess.h"

#include <cstdio>
#include <exception>
#include <sys/wait.h>
#include <unistd.h>

namespace ZelTest {

pid_t spawn(const std::function<int()>& run) {
   const pid_t child = fork();
   if (child == 0) {
      int status = 99;
      try {
         status = run();
      } catch (const std::exception& error) {
         std::fprintf(stderr, "child: %s\n", error.what());
      }
      _exit(status);
   }
   return child;
}

int statusOf(pid_t child) {
   int status = 0;
   waitpid(child, &status, 0);
   return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
}

} // namespace ZelTest

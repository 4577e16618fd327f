// Takes away the signal of a closed pipe.
#include "kiln/PipeWrite.h"

#include <cerrno>
#include <csignal>
#include <unistd.h>

namespace Kiln {

// The library must not change the process's signal handling, so this thread blocks SIGPIPE for the write, and removes
// the one that the write raised; one that was pending before stays.
ssize_t writeWithoutSignal(int fd, std::string_view text) {
   sigset_t pipeSignal;
   sigset_t before;
   sigset_t pending;
   sigemptyset(&pipeSignal);
   sigaddset(&pipeSignal, SIGPIPE);
   sigpending(&pending);
   pthread_sigmask(SIG_BLOCK, &pipeSignal, &before);
   const ssize_t written = ::write(fd, text.data(), text.size());
   const int error = errno;
   if (written < 0 && error == EPIPE && sigismember(&pending, SIGPIPE) == 0) {
      const timespec atOnce{};
      sigtimedwait(&pipeSignal, nullptr, &atOnce);
   }
   pthread_sigmask(SIG_SETMASK, &before, nullptr);
   errno = error;
   return written;
}

} // namespace Kiln

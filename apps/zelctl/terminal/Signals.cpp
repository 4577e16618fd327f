// Signal handlers write the signal's number into a pipe, so that poll() can wait for signals and keys at once.
#include "apps/zelctl/terminal/Signals.h"

#include "kiln/Types.h"

#include <array>
#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <stdexcept>
#include <unistd.h>

namespace ZelCtl {

namespace {

constexpr std::array caught{SIGINT, SIGTERM, SIGHUP, SIGQUIT, SIGWINCH};
// A handler gets no argument of its own, so its pipe is global; hence only one Signals at a time.
int pipeEnds[2] = {-1, -1};
std::array<struct sigaction, caught.size()> formerActions;

void note(int signal) {
   const int error = errno;
   const auto byte = static_cast<U8>(signal);
   // If the pipe is full, thousands of signals are waiting to be read, and this one may get lost.
   [[maybe_unused]] const ssize_t written = write(pipeEnds[1], &byte, 1);
   errno = error;
}

} // namespace

Signals::Signals() {
   if (pipe2(pipeEnds, O_CLOEXEC | O_NONBLOCK) != 0) {
      throw std::runtime_error("cannot create a pipe");
   }
   // No SA_RESTART: system calls that wait return with EINTR, and their callers look at the signals.
   struct sigaction action {};
   action.sa_handler = note;
   for (std::size_t i = 0; i < caught.size(); ++i) {
      sigaction(caught[i], &action, &formerActions[i]);
   }
}

Signals::~Signals() {
   for (std::size_t i = 0; i < caught.size(); ++i) {
      sigaction(caught[i], &formerActions[i], nullptr);
   }
   close(pipeEnds[0]);
   close(pipeEnds[1]);
}

int Signals::fd() const {
   return pipeEnds[0];
}

void Signals::drain() {
   for (U8 signal = 0; read(pipeEnds[0], &signal, 1) == 1;) {
      if (signal == SIGINT) {
         wasInterrupted_ = true;
      } else if (signal == SIGWINCH) {
         wasResized_ = true;
      } else {
         ending_ = signal;
      }
   }
}

bool Signals::takeInterrupt() {
   drain();
   const bool was = wasInterrupted_;
   wasInterrupted_ = false;
   return was;
}

bool Signals::takeResize() {
   drain();
   const bool was = wasResized_;
   wasResized_ = false;
   return was;
}

int Signals::ending() {
   drain();
   return ending_;
}

bool Signals::isBreaking() {
   drain();
   return wasInterrupted_ || ending_ != 0;
}

} // namespace ZelCtl

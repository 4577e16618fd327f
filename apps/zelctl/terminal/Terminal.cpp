// Terminal modes, waiting for keys, and writing.
#include "apps/zelctl/terminal/Terminal.h"

#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <poll.h>
#include <sys/ioctl.h>
#include <unistd.h>

namespace ZelCtl {

TerminalSize terminalSize() {
   TerminalSize size;
   winsize window{};
   if (ioctl(STDOUT_FILENO, TIOCGWINSZ, &window) == 0 && window.ws_col > 0 && window.ws_row > 0) {
      size = {window.ws_col, window.ws_row};
   }
   return size;
}

bool isScreen() {
   const char* const name = std::getenv("TERM");
   return isatty(STDOUT_FILENO) != 0 && name != nullptr && *name != '\0' && std::string_view(name) != "dumb";
}

KeyMode::KeyMode() {
   if (tcgetattr(STDIN_FILENO, &former_) != 0) {
      return;
   }
   termios mode = former_;
   mode.c_lflag &= ~static_cast<tcflag_t>(ICANON | ECHO | IEXTEN);
   mode.c_iflag &= ~static_cast<tcflag_t>(ICRNL | IXON);
   mode.c_cc[VMIN] = 1;
   mode.c_cc[VTIME] = 0;
   mode.c_cc[VSUSP] = _POSIX_VDISABLE; // Ctrl-Z would stop the process before it can restore the terminal
   isOn_ = tcsetattr(STDIN_FILENO, TCSADRAIN, &mode) == 0;
}

KeyMode::~KeyMode() {
   if (isOn_) {
      tcsetattr(STDIN_FILENO, TCSADRAIN, &former_);
   }
}

Written writeOut(std::string_view text, Signals* signals) {
   constexpr std::size_t piece = 16 * 1024; // signals are checked after each
   while (!text.empty()) {
      if (signals != nullptr && signals->isBreaking()) {
         return Written::interrupted;
      }
      const ssize_t written = write(STDOUT_FILENO, text.data(), std::min(text.size(), piece));
      if (written >= 0) {
         text.remove_prefix(static_cast<std::size_t>(written));
      } else if (errno != EINTR) {
         return errno == EPIPE ? Written::readerGone : Written::failed;
      }
   }
   return Written::all;
}

Woken waitFor(Signals* signals, bool keys, double seconds) {
   pollfd watched[] = {{keys ? STDIN_FILENO : -1, POLLIN, 0},
                       {signals != nullptr ? signals->fd() : -1, POLLIN, 0},
                       {STDOUT_FILENO, 0, 0}}; // no events: only for POLLERR, when the reader is gone
   const int milliseconds = seconds < 0 ? -1 : static_cast<int>(std::ceil(seconds * 1e3));
   if (poll(watched, std::size(watched), milliseconds) <= 0) {
      return {};
   }
   return {watched[0].revents != 0, (watched[2].revents & POLLERR) != 0};
}

bool readsEndKey() {
   char key = 0;
   return read(STDIN_FILENO, &key, 1) != 1 || key == 'q' || key == 'Q';
}

} // namespace ZelCtl

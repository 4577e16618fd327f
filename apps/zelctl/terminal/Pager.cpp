// Starts the pager, feeds it, and waits for it.
#include "apps/zelctl/terminal/Pager.h"

#include "apps/zelctl/terminal/Utf8.h"
#include "kiln/OwnedFd.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

namespace ZelCtl {

namespace {

using Kiln::String;

// A line that is wider than the screen takes several rows of it; the prompt needs one.
bool fits(std::string_view text, const TerminalSize& size) {
   std::size_t rows = 1;
   while (!text.empty() && rows <= size.height) {
      const std::size_t end = std::min(text.find('\n'), text.size());
      const std::size_t columns = std::max<std::size_t>(columnsIn(text.substr(0, end)), 1);
      rows += (columns + size.width - 1) / size.width;
      text.remove_prefix(std::min(end + 1, text.size()));
   }
   return rows <= size.height;
}

bool isInstalled(const String& program) {
   const char* const variable = std::getenv("PATH");
   std::string_view folders = variable != nullptr ? variable : "/usr/bin:/bin";
   while (!folders.empty()) {
      const std::size_t end = std::min(folders.find(':'), folders.size());
      if (access((String(folders.substr(0, end)) + "/" + program).c_str(), X_OK) == 0) {
         return true;
      }
      folders.remove_prefix(std::min(end + 1, folders.size()));
   }
   return false;
}

// A command for the shell; empty for none.
String pagerCommand() {
   if (const char* const chosen = std::getenv("PAGER")) {
      return chosen;
   }
   return isInstalled("less") ? "less -FRX" : isInstalled("more") ? "more" : "";
}

// Ctrl-C goes to the pager too, which has its own use for it: without Signals it must not end this process before the
// pager has restored the terminal.
class KeysLeftAlone {
 public:
   explicit KeysLeftAlone(const Signals* signals) : isNeeded_(signals == nullptr) {
      if (isNeeded_) {
         interrupt_ = std::signal(SIGINT, SIG_IGN);
         quit_ = std::signal(SIGQUIT, SIG_IGN);
      }
   }
   KeysLeftAlone(const KeysLeftAlone&) = delete;
   KeysLeftAlone& operator=(const KeysLeftAlone&) = delete;
   ~KeysLeftAlone() {
      if (isNeeded_) {
         std::signal(SIGINT, interrupt_);
         std::signal(SIGQUIT, quit_);
      }
   }

 private:
   bool isNeeded_;
   sighandler_t interrupt_ = SIG_DFL;
   sighandler_t quit_ = SIG_DFL;
};

[[noreturn]] void becomePager(const String& command, int input) {
   dup2(input, STDIN_FILENO); // the copy survives the exec
   for (const int signal : {SIGINT, SIGQUIT, SIGPIPE}) {
      std::signal(signal, SIG_DFL);
   }
   execl("/bin/sh", "sh", "-c", command.c_str(), nullptr);
   _exit(127);
}

bool isEnding(Signals* signals) {
   return signals != nullptr && signals->ending() != 0;
}

// A pager that ends early has shown what was wanted.
void feed(int pager, std::string_view text, Signals* signals) {
   while (!text.empty() && !isEnding(signals)) {
      const ssize_t written = write(pager, text.data(), text.size());
      if (written >= 0) {
         text.remove_prefix(static_cast<std::size_t>(written));
      } else if (errno != EINTR) {
         return;
      }
   }
}

// Whether the pager has run.
bool isShownBy(const String& command, std::string_view text, Signals* signals) {
   int ends[2];
   if (pipe2(ends, O_CLOEXEC) != 0) {
      return false;
   }
   Kiln::OwnedFd output(ends[0]);
   Kiln::OwnedFd input(ends[1]);
   const KeysLeftAlone keys(signals);
   const pid_t pager = fork();
   if (pager < 0) {
      return false;
   }
   if (pager == 0) {
      becomePager(command, output.fd());
   }
   output = {};
   feed(input.fd(), text, signals);
   input = {};
   int status = 0;
   do {
      if (isEnding(signals)) {
         kill(pager, SIGTERM);
      }
   } while (waitpid(pager, &status, 0) < 0 && errno == EINTR);
   return !WIFEXITED(status) ||
          (WEXITSTATUS(status) != 126 && WEXITSTATUS(status) != 127); // the shell's "cannot run"
}

} // namespace

Written pageOut(std::string_view text, Signals* signals) {
   const String command = isScreen() && !fits(text, terminalSize()) ? pagerCommand() : "";
   return !command.empty() && isShownBy(command, text, signals) ? Written::all : writeOut(text, signals);
}

} // namespace ZelCtl

// Writes what a descriptor takes at once, and counts the rest.
#include "kiln/LogOutput.h"

#include "kiln/Choices.h"
#include "kiln/PipeWrite.h"
#include "kiln/Utf8.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

namespace Kiln {

namespace {

constexpr int burst = 1 << 20; // bytes that a pipe should hold, since its reader gets no time to catch up

} // namespace

LogOutput& LogOutput::standardOutput() {
   static auto* output = new LogOutput(STDOUT_FILENO); // never freed: written to while statics are destroyed
   return *output;
}

LogOutput& LogOutput::standardError() {
   static auto* output = new LogOutput(STDERR_FILENO);
   return *output;
}

// Looks what file the descriptor stands for now.
void LogOutput::follow() {
   struct stat status {};
   if (fstat(fd_, &status) != 0 || (status.st_dev == device_ && status.st_ino == inode_)) {
      return;
   }
   device_ = status.st_dev;
   inode_ = status.st_ino;
   isSocket_ = S_ISSOCK(status.st_mode);
   own_ = {};
   if (S_ISFIFO(status.st_mode) || S_ISCHR(status.st_mode)) {
      own_ = OwnedFd(open(("/proc/self/fd/" + std::to_string(fd_)).c_str(),
                          O_WRONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
   }
   if (own_.isOpen() && S_ISFIFO(status.st_mode)) {
      fcntl(own_.fd(), F_SETPIPE_SZ, burst); // as far as the system allows
   }
}

// Like write(2), but with EAGAIN in place of waiting.
ssize_t LogOutput::take(std::string_view text) const {
   if (isSocket_) {
      return send(fd_, text.data(), text.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
   }
   if (own_.isOpen()) {
      return writeWithoutSignal(own_.fd(), text);
   }
   // A file on a disk, or a pipe or terminal that this process may not open: a pipe that has room at all has it for this
   // much.
   pollfd room{fd_, POLLOUT, 0};
   if (poll(&room, 1, 0) == 0) {
      errno = EAGAIN;
      return -1;
   }
   return writeWithoutSignal(fd_, text.substr(0, PIPE_BUF));
}

// Returns what did not fit.
std::string_view LogOutput::takeAll(std::string_view text) {
   while (!text.empty()) {
      const ssize_t taken = take(text);
      if (taken > 0) {
         isMidLine_ = text[static_cast<std::size_t>(taken) - 1] != '\n';
         text.remove_prefix(static_cast<std::size_t>(taken));
      } else if (taken == 0 || errno != EINTR) {
         break;
      }
   }
   return text;
}

void LogOutput::write(std::string_view lines) {
   const String text = printableText(lines);
   const int error = errno; // whoever logs in the middle of something may still look at it
   const std::lock_guard lock(mutex_);
   follow();
   std::string_view left = text;
   if (dropped_ > 0) {
      String notice = isMidLine_ ? "\n" : "";
      notice += counted(dropped_, "line");
      notice += " of this log dropped: nobody read them in time\n";
      dropped_ = takeAll(notice).empty() ? 0 : dropped_;
   }
   if (dropped_ == 0) {
      left = takeAll(left);
   }
   dropped_ += static_cast<U64>(std::ranges::count(left, '\n'));
   errno = error;
}

} // namespace Kiln

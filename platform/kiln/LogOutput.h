// Lines of a log to a descriptor whose reader is never waited for: a pipe that nobody reads, or a terminal that was
// stopped, must not stop whoever logs. What does not fit is dropped and counted, and the count is the first line that
// fits again.
#pragma once

#include "kiln/OwnedFd.h"
#include "kiln/Types.h"

#include <mutex>
#include <string_view>
#include <sys/types.h>

namespace Kiln {

class LogOutput {
 public:
   // Does not own the descriptor, whose file may change. It is left as it is, since other processes may share it: where
   // that is possible, the pipe or terminal behind it is opened a second time, without blocking.
   explicit LogOutput(int fd) : fd_(fd) {}
   LogOutput(const LogOutput&) = delete;
   LogOutput& operator=(const LogOutput&) = delete;

   // The process's own; never destroyed.
   static LogOutput& standardOutput();
   static LogOutput& standardError();

   // One or more lines, each with its newline. A terminal gets nothing from them that it might obey. Any thread; throws
   // nothing but std::bad_alloc.
   void write(std::string_view lines);

 private:
   void follow();
   ssize_t take(std::string_view text) const;
   std::string_view takeAll(std::string_view text);

   std::mutex mutex_;
   int fd_;
   // The file behind it, and that file opened again.
   dev_t device_ = 0;
   ino_t inode_ = 0;
   bool isSocket_ = false;
   OwnedFd own_;
   U64 dropped_ = 0; // lines since the last that were said
   bool isMidLine_ = false;
};

} // namespace Kiln

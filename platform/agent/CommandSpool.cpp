// The memory file behind a command's output.
#include "agent/CommandSpool.h"

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <sys/mman.h>
#include <system_error>
#include <unistd.h>

namespace Agent {

CommandSpool::CommandSpool(std::size_t limit)
     : limit_(limit), file_(memfd_create("command output", MFD_CLOEXEC | MFD_ALLOW_SEALING)) {
   // The file has its full size from the start, without memory behind it yet, and is sealed against growing: so the
   // kernel enforces the bound, whoever writes through the descriptor.
   if (!file_.isOpen() || ftruncate(fd(), static_cast<off_t>(limit)) != 0 ||
       fcntl(fd(), F_ADD_SEALS, F_SEAL_GROW | F_SEAL_SHRINK) != 0) {
      throw std::system_error(errno, std::generic_category(), "no memory file for the command's output");
   }
}

// The file position: the writers share it with this descriptor, and the file's size says nothing.
std::size_t CommandSpool::written() const {
   return static_cast<std::size_t>(std::max<off_t>(lseek(fd(), 0, SEEK_CUR), 0));
}

bool CommandSpool::isFull() const {
   return written() >= limit_;
}

std::size_t CommandSpool::size() const {
   return isFull() ? wholeLines() : written();
}

// The bound cuts the last line anywhere, and half a number would be a wrong one.
std::size_t CommandSpool::wholeLines() const {
   char tail[4096];
   const std::size_t from = limit_ - std::min(limit_, sizeof tail);
   const std::size_t length = read(from, tail, sizeof tail);
   for (std::size_t i = length; i > 0; --i) {
      if (tail[i - 1] == '\n') {
         return from + i;
      }
   }
   return limit_;
}

std::size_t CommandSpool::read(std::size_t offset, char* to, std::size_t length) const {
   const ssize_t got = pread(fd(), to, length, static_cast<off_t>(offset));
   return got > 0 ? static_cast<std::size_t>(got) : 0;
}

void CommandSpool::copyTo(Kiln::TextOutput& out) const {
   char piece[4096];
   const std::size_t end = size();
   for (std::size_t offset = 0; offset < end && out.ok();) {
      const std::size_t length = read(offset, piece, std::min(sizeof piece, end - offset));
      out.write({piece, length});
      offset += length;
   }
}

} // namespace Agent

// Memory files and pipes that stand for an operator's descriptor.
#include "tests/support/Output.h"

#include <cerrno>
#include <csignal>
#include <sys/mman.h>
#include <system_error>
#include <unistd.h>

namespace ZelTest {

namespace {

int checked(int result, const char* what) {
   if (result < 0) {
      throw std::system_error(errno, std::generic_category(), what);
   }
   return result;
}

} // namespace

std::string printed(const std::function<void(U32 fd)>& operation) {
   const int fd = checked(memfd_create("output", MFD_CLOEXEC), "memfd_create");
   operation(static_cast<U32>(fd));
   std::string text(static_cast<std::size_t>(lseek(fd, 0, SEEK_END)), '\0');
   const ssize_t got = pread(fd, text.data(), text.size(), 0);
   close(fd);
   text.resize(static_cast<std::size_t>(checked(static_cast<int>(got), "pread")));
   return text;
}

ClosedPipe::ClosedPipe() {
   int ends[2];
   checked(pipe(ends), "pipe");
   close(ends[0]);
   fd_ = ends[1];
   std::signal(SIGPIPE, SIG_IGN);
}

ClosedPipe::~ClosedPipe() {
   close(fd_);
}

} // namespace ZelTest

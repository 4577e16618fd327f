// Memory files and pipes stand for an operator's descriptor.
#include "tests/support/Output.h"

#include "kiln/OwnedFd.h"
#include "tests/support/Pipe.h"

#include <cerrno>
#include <sys/mman.h>
#include <system_error>

namespace ZelTest {

std::string printed(const std::function<void(U32 fd)>& operation) {
   const Kiln::OwnedFd file(memfd_create("output", MFD_CLOEXEC));
   if (!file.isOpen()) {
      throw std::system_error(errno, std::generic_category(), "memfd_create");
   }
   operation(static_cast<U32>(file.fd()));
   std::string text(static_cast<std::size_t>(lseek(file.fd(), 0, SEEK_END)), '\0');
   if (pread(file.fd(), text.data(), text.size(), 0) != static_cast<ssize_t>(text.size())) {
      throw std::system_error(errno, std::generic_category(), "pread");
   }
   return text;
}

void printToNobody(const std::function<void(U32 fd)>& operation) {
   Pipe pipe;
   pipe.reader = {};
   operation(static_cast<U32>(pipe.writer.fd()));
}

} // namespace ZelTest

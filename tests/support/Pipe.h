// A pipe of the operating system.
#pragma once

#include "kiln/OwnedFd.h"

#include <cerrno>
#include <string>
#include <system_error>

namespace ZelTest {

struct Pipe {
   Pipe() {
      int ends[2];
      if (pipe(ends) != 0) {
         throw std::system_error(errno, std::generic_category(), "pipe");
      }
      reader = Kiln::OwnedFd(ends[0]);
      writer = Kiln::OwnedFd(ends[1]);
   }

   // Reads until the writer is closed.
   std::string readAll() const {
      std::string all;
      char piece[4096];
      for (ssize_t got = 0; (got = read(reader.fd(), piece, sizeof piece)) > 0;) {
         all.append(piece, static_cast<std::size_t>(got));
      }
      return all;
   }

   Kiln::OwnedFd reader;
   Kiln::OwnedFd writer;
};

} // namespace ZelTest

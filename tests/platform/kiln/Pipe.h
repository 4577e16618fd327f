// A pipe of the operating system.
#pragma once

#include <cerrno>
#include <string>
#include <system_error>
#include <unistd.h>
#include <utility>

namespace ZelTest {

class Pipe {
 public:
   Pipe() {
      if (pipe(ends_) != 0) {
         throw std::system_error(errno, std::generic_category(), "pipe");
      }
   }
   Pipe(const Pipe&) = delete;
   Pipe& operator=(const Pipe&) = delete;
   ~Pipe() {
      closeReader();
      closeWriter();
   }

   int reader() const { return ends_[0]; }
   int writer() const { return ends_[1]; }
   void closeReader() { close(std::exchange(ends_[0], -1)); }
   void closeWriter() { close(std::exchange(ends_[1], -1)); }

   // Until the writer's end is closed.
   std::string readAll() const {
      std::string all;
      char piece[4096];
      for (ssize_t got = 0; (got = read(reader(), piece, sizeof piece)) > 0;) {
         all.append(piece, static_cast<std::size_t>(got));
      }
      return all;
   }

 private:
   int ends_[2] = {-1, -1};
};

} // namespace ZelTest

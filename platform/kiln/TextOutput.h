// Text to a file descriptor, gathered in a buffer and written in large pieces.
//
// Survives short writes and signals, and waits for a non-blocking descriptor. When the descriptor takes no more (a
// closed pipe, a full spool), ok() turns false and further text is dropped; a long print should look at ok() and end
// early. A closed pipe raises no SIGPIPE.
#pragma once

#include "kiln/Types.h"

#include <string_view>

namespace Kiln {

class TextOutput {
 public:
   // Does not own the descriptor. With `echo`, standard output gets the same text, as a log.
   explicit TextOutput(int fd, bool echo = false) : fd_(fd), echo_(echo) {}
   TextOutput(const TextOutput&) = delete;
   TextOutput& operator=(const TextOutput&) = delete;
   // Flushes.
   ~TextOutput();

   // A descriptor, not owned. When it is readable, a reader is no longer waited for: error() is then ECANCELED. -1 for
   // none.
   void endFdIs(int endFd) { endFd_ = endFd; }

   bool ok() const noexcept { return error_ == 0; }
   // Why it takes no more, as an errno value; 0 while it does.
   int error() const noexcept { return error_; }
   void write(std::string_view text);
   // Like printf.
   void print(const char* format, ...) __attribute__((format(printf, 2, 3)));
   // Right-aligned in a field of at least `width` characters.
   void number(U64 value, unsigned width);
   void number(S64 value, unsigned width);
   void flush();

 private:
   template <class Integer>
   void appendNumber(Integer value, unsigned width);
   bool awaitRoom() const;

   static constexpr std::size_t pieceSize = 64 * 1024;

   int fd_;
   bool echo_;
   int endFd_ = -1;
   int error_ = 0;
   String buffer_;
};

} // namespace Kiln

// A command's output: an anonymous memory file of bounded size. Writing to it never blocks; at its bound it takes no
// more.
#pragma once

#include "kiln/OwnedFd.h"
#include "kiln/TextOutput.h"

namespace Agent {

class CommandSpool {
 public:
   static constexpr std::size_t sizeLimit = 64U << 20U; // bytes

   // Throws std::system_error if the machine has no memory file left. `limit` is a whole number of pages.
   explicit CommandSpool(std::size_t limit = sizeLimit);

   int fd() const { return file_.fd(); }
   std::size_t limit() const { return limit_; }
   // Bytes of text. When the spool is full, the text ends with its last whole line.
   std::size_t size() const;
   bool isFull() const;
   // Copies up to `length` bytes from `offset`; returns how many.
   std::size_t read(std::size_t offset, char* to, std::size_t length) const;
   // Copies all of the text, as far as the output takes it.
   void copyTo(Kiln::TextOutput& out) const;

 private:
   std::size_t written() const;
   std::size_t wholeLines() const;

   std::size_t limit_;
   Kiln::OwnedFd file_;
};

} // namespace Agent

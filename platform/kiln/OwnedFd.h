// A descriptor that is closed with its owner.
#pragma once

#include <unistd.h>
#include <utility>

namespace Kiln {

// Movable, not copyable. -1 stands for none, as system calls have it.
class OwnedFd {
 public:
   OwnedFd() noexcept = default;
   explicit OwnedFd(int fd) noexcept : fd_(fd) {}
   OwnedFd(OwnedFd&& other) noexcept : fd_(other.release()) {}
   OwnedFd& operator=(OwnedFd&& other) noexcept {
      OwnedFd(std::move(other)).swap(*this);
      return *this;
   }
   ~OwnedFd() {
      if (isOpen()) {
         close(fd_);
      }
   }

   int fd() const noexcept { return fd_; }
   bool isOpen() const noexcept { return fd_ >= 0; }
   // The caller owns the descriptor from here on.
   int release() noexcept { return std::exchange(fd_, -1); }
   void swap(OwnedFd& other) noexcept { std::swap(fd_, other.fd_); }

 private:
   int fd_ = -1;
};

} // namespace Kiln

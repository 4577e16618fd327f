// A process that has no descriptors left.
#pragma once

#include "kiln/OwnedFd.h"

#include <fcntl.h>
#include <sys/resource.h>
#include <vector>

namespace ZelTest {

// As long as it lives, nothing can be opened.
class NoDescriptors {
 public:
   NoDescriptors() {
      getrlimit(RLIMIT_NOFILE, &before_);
      const rlimit low{256, before_.rlim_max};
      setrlimit(RLIMIT_NOFILE, &low);
      do {
         taken_.emplace_back(open("/dev/null", O_RDONLY | O_CLOEXEC));
      } while (taken_.back().isOpen());
   }
   NoDescriptors(const NoDescriptors&) = delete;
   NoDescriptors& operator=(const NoDescriptors&) = delete;
   ~NoDescriptors() { setrlimit(RLIMIT_NOFILE, &before_); }

   // Lets so many be opened.
   void give(std::size_t count) { taken_.resize(taken_.size() - 1 - count); }

 private:
   rlimit before_{};
   std::vector<Kiln::OwnedFd> taken_; // the last one is not open
};

} // namespace ZelTest

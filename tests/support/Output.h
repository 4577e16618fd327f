// What is written to a descriptor.
#pragma once

#include "kiln/Types.h"

#include <functional>
#include <string>

namespace ZelTest {

// What the operation writes to the descriptor that it is given.
std::string printed(const std::function<void(U32 fd)>& operation);

// The writing end of a pipe that nobody reads any more. SIGPIPE is ignored from here on, as it is in an agent.
class ClosedPipe {
 public:
   ClosedPipe();
   ClosedPipe(const ClosedPipe&) = delete;
   ClosedPipe& operator=(const ClosedPipe&) = delete;
   ~ClosedPipe();

   U32 fd() const { return static_cast<U32>(fd_); }

 private:
   int fd_;
};

} // namespace ZelTest

// A scenario's text from a descriptor, read without turning a deaf ear to a request to end.
#pragma once

#include <array>
#include <streambuf>

namespace ZelAgent {

class ScenarioInput : public std::streambuf {
 public:
   // Reads `fd` until its end, or until `endFd` is readable when more is asked for. Neither is owned.
   ScenarioInput(int fd, int endFd) : fd_(fd), endFd_(endFd) {}

 protected:
   // What can't be read is a std::system_error, which a stream makes its bad().
   int_type underflow() override;

 private:
   int fd_;
   int endFd_;
   std::array<char, 4096> bytes_{};
};

} // namespace ZelAgent

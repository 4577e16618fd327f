// Reads a scenario's text from a descriptor, and stops waiting for it when the agent is told to end. In simulated time
// nothing happens while it waits; in real time the agent goes on.
#pragma once

#include <array>
#include <streambuf>

namespace ZelAgent {

class ScenarioInput : public std::streambuf {
 public:
   // Reads `fd` until its end, or until more is needed while `endFd` is readable. Neither is owned. Whoever makes
   // `endFd` readable also stops the activity manager.
   ScenarioInput(int fd, int endFd) : fd_(fd), endFd_(endFd) {}

 protected:
   // Throws std::system_error if the descriptor cannot be read; a stream turns that into bad().
   int_type underflow() override;

 private:
   int fd_;
   int endFd_;
   std::array<char, 4096> bytes_{};
};

} // namespace ZelAgent

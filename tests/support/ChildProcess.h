// Processes that a test begins and looks at the end of.
#pragma once

#include <functional>
#include <sys/types.h>

namespace ZelTest {

// A child process that runs the function and exits with what it returns. No gtest assertion means anything in it.
pid_t spawn(const std::function<int()>& run);

// Waits for its end: its exit status, or minus the signal that ended it.
int statusOf(pid_t child);

} // namespace ZelTest

// Processes that a test starts, and whose end it checks.
#pragma once

#include <functional>
#include <sys/types.h>

namespace ZelTest {

// Starts a child process that runs the function and exits with what it returns. A gtest assertion that fails in it does
// not fail the test.
pid_t spawn(const std::function<int()>& run);

// Waits for the child's end. Returns its exit status, or minus the signal that ended it.
int statusOf(pid_t child);

} // namespace ZelTest

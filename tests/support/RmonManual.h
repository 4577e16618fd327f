// The manual's table of RMON counters.
#pragma once

#include <string>
#include <vector>

namespace ZelTest {

// The rows of docs/rmon-counters.md, a cell each: index, name, what counts, field of the interface's record or "-".
std::vector<std::vector<std::string>> rmonManual();

} // namespace ZelTest

// The manual's table of RMON counters.
#pragma once

#include <string>
#include <vector>

namespace ZelTest {

// The table rows of docs/rmon-counters.md. Each has four cells: index, name, what counts, and the field of the
// interface's record, or "-".
std::vector<std::vector<std::string>> rmonManual();

} // namespace ZelTest

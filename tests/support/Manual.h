// Tables of the documents, for tests that compare them with the code.
#pragma once

#include <string>
#include <vector>

namespace ZelTest {

// The whole text of docs/FILE.
std::string manual(const std::string& file);

// The cells of the table rows between the heading (a whole line, such as "## Fields") and the next one. Only rows that
// begin with a number count. Throws std::out_of_range if there are none.
std::vector<std::vector<std::string>> manualRows(const std::string& file, const std::string& heading);

} // namespace ZelTest

// Files as bytes, to be looked at and damaged while others use them.
#pragma once

#include <string>

namespace ZelTest {

std::string bytesOf(const std::string& path);

// Overwrites a part of an existing file.
void overwrite(const std::string& path, std::size_t offset, const std::string& bytes);

} // namespace ZelTest

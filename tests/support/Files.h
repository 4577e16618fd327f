// Files as bytes, looked at and damaged behind the backs of those who use them.
#pragma once

#include <string>

namespace ZelTest {

std::string bytesOf(const std::string& path);

// Overwrites a part of a file that is there.
void overwrite(const std::string& path, std::size_t offset, const std::string& bytes);

} // namespace ZelTest

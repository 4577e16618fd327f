// Reads and overwrites files.
#include "tests/support/Files.h"

#include <fstream>
#include <iterator>

namespace ZelTest {

std::string bytesOf(const std::string& path) {
   std::ifstream file(path, std::ios::binary);
   file.exceptions(std::ios::badbit | std::ios::failbit);
   return {std::istreambuf_iterator<char>(file), {}};
}

void overwrite(const std::string& path, std::size_t offset, const std::string& bytes) {
   std::fstream file(path, std::ios::binary | std::ios::in | std::ios::out);
   file.exceptions(std::ios::badbit | std::ios::failbit);
   file.seekp(static_cast<std::streamoff>(offset));
   file << bytes << std::flush;
}

} // namespace ZelTest

// Creates and removes the folder.
#include "tests/support/TemporaryFolder.h"

#include <cstdlib>
#include <filesystem>
#include <system_error>

namespace ZelTest {

namespace fs = std::filesystem;

TemporaryFolder::TemporaryFolder() {
   // In memory if possible, since some tests write thousands of small files.
   const fs::path parent = fs::exists("/dev/shm") ? fs::path("/dev/shm") : fs::temp_directory_path();
   path_ = parent / "zel-test-XXXXXX";
   if (mkdtemp(path_.data()) == nullptr) {
      throw std::system_error(errno, std::generic_category(), path_);
   }
}

TemporaryFolder::~TemporaryFolder() {
   std::error_code ignored;
   fs::remove_all(path_, ignored);
}

} // namespace ZelTest

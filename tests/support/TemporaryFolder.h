// A folder that goes with the test.
#pragma once

#include <string>

namespace ZelTest {

// A new folder that only this user may look into, removed at the end with all that is in it.
class TemporaryFolder {
 public:
   TemporaryFolder();
   TemporaryFolder(const TemporaryFolder&) = delete;
   TemporaryFolder& operator=(const TemporaryFolder&) = delete;
   ~TemporaryFolder();

   const std::string& path() const { return path_; }

 private:
   std::string path_;
};

} // namespace ZelTest

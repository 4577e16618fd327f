// A folder for the duration of a test.
#pragma once

#include <string>

namespace ZelTest {

// A new folder that only this user may read. The destructor removes it with everything in it.
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

// Sets a variable, and restores it.
#include "tests/support/Environment.h"

#include <cstdlib>

namespace ZelTest {

Environment::Environment(const char* name, const char* value) : name_(name) {
   if (const char* const before = std::getenv(name)) {
      before_ = before;
   }
   setenv(name, value, 1);
}

Environment::~Environment() {
   if (before_) {
      setenv(name_, before_->c_str(), 1);
   } else {
      unsetenv(name_);
   }
}

} // namespace ZelTest

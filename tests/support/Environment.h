// Environment variables for the duration of a scope.
#pragma once

#include <optional>
#include <string>

namespace ZelTest {

// Sets a variable as long as the object lives; then restores its former value.
class Environment {
 public:
   Environment(const char* name, const char* value);
   Environment(const Environment&) = delete;
   Environment& operator=(const Environment&) = delete;
   ~Environment();

 private:
   const char* name_;
   std::optional<std::string> before_;
};

} // namespace ZelTest

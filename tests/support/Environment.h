// Environment variables for the length of a scope.
#pragma once

#include <optional>
#include <string>

namespace ZelTest {

// Sets a variable for the life of the object; then it is what it was.
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

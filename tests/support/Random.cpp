// Takes the seed from the environment or the machine, and prints it.
#include "tests/support/Random.h"

#include "kiln/Numbers.h"

#include <cstdlib>
#include <iostream>
#include <stdexcept>
#include <string>

namespace ZelTest {

U64 numberFromEnvironment(const char* name, U64 otherwise) {
   const char* const text = std::getenv(name);
   if (text == nullptr) {
      return otherwise;
   }
   const auto number = Kiln::parseNumber<U64>(text);
   if (!number) {
      throw std::invalid_argument(std::string(name) + " '" + text + "': expected a number");
   }
   return *number;
}

Random::Random() : seed_(numberFromEnvironment("ZEL_TEST_SEED", std::random_device()())), engine_(seed_) {
   // Flushed at once, since an assertion may end the process.
   std::cout << "ZEL_TEST_SEED=" << seed_ << std::endl;
}

} // namespace ZelTest

// Takes the seed from the environment or the machine, and prints it.
#include "tests/support/Random.h"

#include "kiln/Numbers.h"

#include <cstdlib>
#include <iostream>
#include <stdexcept>
#include <string>

namespace ZelTest {

namespace {

U64 chosenSeed() {
   const char* const text = std::getenv("ZEL_TEST_SEED");
   if (text == nullptr) {
      return std::random_device()();
   }
   const auto number = Kiln::parseNumber<U64>(text);
   if (!number) {
      throw std::invalid_argument(std::string("ZEL_TEST_SEED '") + text + "': expected a number");
   }
   return *number;
}

} // namespace

Random::Random() : seed_(chosenSeed()), engine_(seed_) {
   // Flushed at once, since an assertion may end the process.
   std::cout << "ZEL_TEST_SEED=" << seed_ << std::endl;
}

} // namespace ZelTest

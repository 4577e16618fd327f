// Installs simulated time, and restores real time.
#include "tests/support/SimulatedTime.h"

namespace ZelTest {

SimulatedTime::SimulatedTime() {
   Kiln::System::timeSourceIs(Kiln::allocate<Kiln::SimulatedTime>());
   Kiln::ActivityManager::instanceDel();
}

SimulatedTime::~SimulatedTime() {
   Kiln::ActivityManager::instanceDel();
   Kiln::System::timeSourceIs(nullptr);
}

} // namespace ZelTest

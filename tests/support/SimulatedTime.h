// Simulated time for the life of a test.
#pragma once

#include "kiln/ActivityManager.h"

namespace ZelTest {

// Time that begins at 0 and moves only by advance(), under an activity manager of its own; afterwards it is real again.
// The first member of a rig: what still asks for the time at its end must end before this.
class SimulatedTime {
 public:
   SimulatedTime();
   SimulatedTime(const SimulatedTime&) = delete;
   SimulatedTime& operator=(const SimulatedTime&) = delete;
   ~SimulatedTime();

   static double now() { return Kiln::System::currentTime(); }
   // Fires what falls due. Takes the activity lock.
   static void advance(double seconds) { Kiln::ActivityManager::instance()->advance(seconds); }
};

} // namespace ZelTest

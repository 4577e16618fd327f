// Simulated time for the duration of a test.
#pragma once

#include "kiln/ActivityManager.h"

namespace ZelTest {

// Simulated time that begins at 0 and moves only by advance(), with an activity manager of its own. The destructor
// restores real time. It must be a rig's first member, so that it is destroyed after all that may ask for the time.
class SimulatedTime {
 public:
   SimulatedTime();
   SimulatedTime(const SimulatedTime&) = delete;
   SimulatedTime& operator=(const SimulatedTime&) = delete;
   ~SimulatedTime();

   static double now() { return Kiln::System::currentTime(); }
   // Lets time pass and fires what falls due. Takes the activity lock.
   static void advance(double seconds) { Kiln::ActivityManager::instance()->advance(seconds); }
};

} // namespace ZelTest

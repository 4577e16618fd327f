// Simulated time for the duration of a test.
#pragma once

#include "kiln/ActivityManager.h"

namespace ZelTest {

// Simulated time that begins at 0 and moves only by advance(), with an activity manager of its own. Its end restores
// real time. It must be a rig's first member, so that whatever asks for the time in a destructor is destroyed before it.
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

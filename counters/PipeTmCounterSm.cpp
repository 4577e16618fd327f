// Keeps a traffic-manager poller's times.
#include "PipeTmCounterSm.h"

#include "ZelCountersTrace.h"
#include "kiln/Time.h"

namespace ZelCounter {

PipeTmCounterSm::PipeTmCounterSm(ZelCounters* parent, PipeTmCounterKey key, U32 physicalPipe,
                                 Kiln::Ptr<const Kiln::Clock> clock)
     : parent_(parent), key_(key), physicalPipe_(physicalPipe), pollingClock_(std::move(clock), this) {}

void PipeTmCounterSm::scheduleClock() {
   pollingClock_.timeMinIs(Kiln::System::currentTime() + pollingInterval());
}

void PipeTmCounterSm::handlePollingClock() {
   KILN_TRACE(5,
              "PipeTmCounterSm::handlePollingClock, pipe: " << key_.pipe << ", type: " << key_.counterType);
   scheduleClock();
}

} // namespace ZelCounter

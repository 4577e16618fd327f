// Polls a pipe's traffic-manager counters of one type. The SDK answers at once, so there is no completion.
#include "counters/drops/PipeTmCounterSm.h"

#include "counters/chip/Guarded.h"
#include "counters/chip/SdkStatus.h"
#include "counters/chip/ZelCountersTrace.h"
#include "counters/drops/TmCounters.h"
#include "kiln/Time.h"
#include "sdk/bf_tm.h"

namespace ZelCounter {

PipeTmCounterSm::PipeTmCounterSm(TmCounters* parent, PipeTmCounterKey key, U32 physicalPipe,
                                 Kiln::Ptr<const Kiln::Clock> clock)
     : parent_(parent), key_(key), physicalPipe_(physicalPipe),
       pollingClock_(std::move(clock), this, &PipeTmCounterSm::handlePollingClock) {}

void PipeTmCounterSm::scheduleClock() {
   pollingClock_.timeMinIs(Kiln::System::currentTime() + pollingInterval());
}

void PipeTmCounterSm::poll() {
   bf_tm_pipe_counter_t counter{};
   const bf_status_t status = bf_tm_pipe_counter_get(parent()->deviceId(), static_cast<U16>(physicalPipe()),
                                                     key_.counterType, &counter);
   if (status != BF_SUCCESS) {
      KILN_TRACE(4, pipeReadErrorText(status, key_.pipe) << ", traffic-manager type " << key_.counterType);
   }
   parent()->counterIs(key_, status, counter);
}

void PipeTmCounterSm::handlePollingClock() {
   KILN_TRACE(5,
              "PipeTmCounterSm::handlePollingClock, pipe: " << key_.pipe << ", type: " << key_.counterType);
   guarded("polling the traffic manager", [this] { poll(); });
   scheduleClock(); // also after a failure: unlike a queue's, this poller never gives up
}

} // namespace ZelCounter

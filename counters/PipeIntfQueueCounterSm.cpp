// The polling clock of a pipe's queue counters.
#include "PipeIntfQueueCounterSm.h"

#include "CounterTableNames.h"
#include "ZelCounters.h"
#include "ZelCountersTrace.h"
#include "kiln/Time.h"

#include <array>
#include <deque>

namespace ZelCounter {

namespace {

constexpr double tableRetryInterval = 1.0; // seconds

PipeQueueCountersCookie* cookieSlot(ZelId::ZelDevId devId, ZelId::ZelPipeId pipe) {
   // One array a device, indexed by pipe; a deque, so that growing moves no slot. Never freed: completions
   // may outlive static destruction.
   static auto& pipeQueueCountersCookie =
        *new std::array<std::deque<PipeQueueCountersCookie>, ZelId::maxDevices>;
   auto& slots = pipeQueueCountersCookie.at(devId);
   if (slots.size() <= pipe) {
      slots.resize(std::size_t{pipe} + 1);
   }
   return &slots[pipe];
}

} // namespace

PipeIntfQueueCounterSm::PipeIntfQueueCounterSm(ZelCounters* parent, ZelId::ZelPipeId pipe,
                                               Kiln::Ptr<const Kiln::Clock> clock)
     : parent_(parent), pipe_(pipe), cookie_(cookieSlot(parent->deviceId(), pipe)),
       pollingClock_(std::move(clock), this) {}

PipeIntfQueueCounterSm::~PipeIntfQueueCounterSm() {
   if (cookie_->zelCounters == parent_) {
      cookie_->zelCounters = nullptr;
   }
}

void PipeIntfQueueCounterSm::pollingClockExpired() {
   KILN_TRACE(5, "PipeIntfQueueCounterSm::pollingClockExpired");
   const ZlResourceInfo::ZlResourceInfoIntf& catalogue = *parent_->zlResourceInfoIntf();
   *cookie_ = {parent_, pipe_};
   const U32 egressPortQueueCountId = catalogue.zlTableCounterIndex(TableNames::egressPortQueueCount);
   if (!parent_->initializedCounter(egressPortQueueCountId)) {
      KILN_TRACE(5, "returning since table instance is not there");
      pollingClock_.timeMinIs(Kiln::System::currentTime() + tableRetryInterval);
      return;
   }
}

} // namespace ZelCounter

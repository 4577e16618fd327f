// Refreshes the SDK's software copy of a chip's counter tables from the hardware, pass after pass.
#pragma once

#include "counters/chip/CookieRegistry.h"
#include "counters/chip/Readings.h"
#include "kiln/Accessors.h"
#include "kiln/Timer.h"
#include "sdk/bf_types.h"
#include "zl/ZlResourceInfo.h"

#include <optional>
#include <vector>

namespace ZelCounter {

class ChipAccess;

// One a chip, owned by its counters object, and itself the cookie of its sync requests.
//
// A pass asks for every initialized table in the order of the catalogue, once per pipe where it is read per
// pipe. The next pass starts hwTableCountersPollingInterval after the last completion of this one; a
// completion that never comes stops the passes of this chip only. The first pass whose completions have all
// come sets the parent's firstPollingComplete.
//
// Everything under the activity lock.
class HwTableCountersSm : public Kiln::Entity, public CookieStorage<HwTableCountersSm> {
 public:
   // The parent owns this and is held by a raw pointer; it has a resource-info service.
   HwTableCountersSm(Kiln::Ptr<const Kiln::Clock> clock, ChipAccess* parent);
   ~HwTableCountersSm() override;

   // Null once stopped.
   ChipAccess* parent() const { return parent_; }

   // The clock of the passes, not armed. Without one there are no more passes.
   void pollingClockIs(Kiln::Ptr<const Kiln::Clock> clock);
   void pollingClockDel() { pollingClock_.reset(); }
   // When the next pass starts; never while completions are outstanding.
   double pollingTimeMin() const { return pollingClock_ ? pollingClock_->timeMin() : Kiln::never; }

   // Arms the clock; a clock that is armed keeps its time.
   void scheduleClock();
   // True when the table was asked for and no request failed.
   bool scheduleHwSyncTable(U32 tableId);
   // One request has completed.
   void syncCompleted();
   // The chip goes away: there are no more passes, and outstanding completions find nobody. Idempotent.
   void stop();

   // True while a pass issues its requests.
   KILN_ATTRIBUTE(bool, scheduleInProgress, false)
   // Seconds.
   KILN_SECONDS(hwTableCountersPollingInterval, 2.0)
   // Requests whose completion has not come yet.
   KILN_COUNTER(U32, pendingCallbacks)
   // Set once the first pass is due.
   KILN_ATTRIBUTE(bool, initialized, false)

 private:
   void handleInitialized();
   void handlePollingClock();
   U32 requestSync(U32 tableId, const ZlResourceInfo::ZlTableCounter& info, U16 pipe);
   void passCompleted();

   ChipAccess* parent_; // owns this
   std::optional<Kiln::Timer<HwTableCountersSm>> pollingClock_;
   // Accepted in this pass. A completion does not tell its table, so they count as read when the pass has ended.
   std::vector<ReadingKey> asked_;
};

// The SDK's completion of a sync; the cookie is the HwTableCountersSm that asked. Takes the activity lock.
// Asserts that the cookie is not null; a scheduler that is gone, or of another device, is left alone.
void hwTableCallback(bf_dev_id_t dev, void* hwTableSm);

} // namespace ZelCounter

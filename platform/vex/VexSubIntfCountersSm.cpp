// Follows the subinterfaces that exist, and has their counters published.
#include "vex/VexSubIntfCountersSm.h"

#include "kiln/Assert.h"
#include "kiln/Trace.h"
#include "vex/VexCountersLog.h"

namespace Vex {

namespace {

Kiln::TraceHandle traceHandle("VexSubIntfCountersSm");

// Above 1: as long as polling passes ask in time, the wheel only watches.
constexpr double watchdogIntervals = 1.5;

} // namespace

SubIntfCountersSm::SubIntfCountersSm(Context context)
     : context_(std::move(context)),
       subIntfs_(
            context_.clock, context_.subIntfCountersDir ? &context_.subIntfCountersDir->table() : nullptr,
            context_.subIntfCountersSnapshotDir ? &context_.subIntfCountersSnapshotDir->table() : nullptr,
            [this](const Pelt::IntfId& intf, const Kiln::Ptr<VexTypes::L3IntfCounters>& current,
                   const Kiln::Ptr<VexTypes::L3IntfCounters>& previous) {
               return context_.helper->getSubIntfCounters(intf, current, previous);
            }),
       watchdog_(context_.timerWheel, this), subIntfStatusDirNotifiee_(this) {
   KILN_ASSERT(context_.helper);
   KILN_TRACE(1, "subinterfaces are read through a " << context_.helper->frameworkType());
   subIntfStatusDirNotifiee_.notifierIs(context_.subIntfStatusDir);
}

SubIntfCountersSm::~SubIntfCountersSm() = default;

void SubIntfCountersSm::hasNotificationActiveIs(bool active) {
   const bool wasActive = hasNotificationActive();
   Entity::hasNotificationActiveIs(active);
   if (!active) {
      watchdog_.disarm();
      subIntfs_.cancel();
   } else if (!wasActive) {
      if (context_.subIntfStatusDir) {
         for (const Pelt::IntfId& intf : context_.subIntfStatusDir->intfStatus().keys()) {
            handleSubIntfStatus(intf);
         }
      }
      watchdog_.delayIs(watchdogIntervals * context_.pollInterval);
   }
}

void SubIntfCountersSm::handleSubIntfStatus(const Pelt::IntfId& intf) {
   if (context_.subIntfStatusDir->intfStatus(intf)) {
      subIntfs_.add(intf);
   } else {
      subIntfs_.remove(intf);
   }
}

void SubIntfCountersSm::updateCounters() {
   if (hasNotificationActive()) {
      subIntfs_.allDueIs();
      watchdog_.delayIs(watchdogIntervals * context_.pollInterval);
   }
}

void SubIntfCountersSm::forgetAbsentInterfaces() {
   subIntfs_.removeAbsent([&](const Pelt::IntfId& intf) {
      return context_.subIntfStatusDir && context_.subIntfStatusDir->intfStatus(intf);
   });
}

bool SubIntfCountersSm::clear(const Kiln::String& name) {
   if (name == "all") { // an event of the counters reactor's, which clears all too
      subIntfs_.clearAll();
      return true;
   }
   const bool isCleared = subIntfs_.clear(Pelt::IntfId{Kiln::Name(name)});
   if (isCleared) {
      tellPublishedClear(name);
   }
   return isCleared;
}

} // namespace Vex

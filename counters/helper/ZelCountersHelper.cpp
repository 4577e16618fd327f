// Finds the chip that owns an interface and passes the request on.
#include "helper/ZelCountersHelper.h"

#include "kiln/Trace.h"

namespace ZelCounter {

namespace {

Kiln::TraceHandle traceHandle("ZelCountersHelper");

} // namespace

ZelCountersHelper::ZelCountersHelper(ZelCountersMgr* mgr,
                                     Kiln::Ptr<const ZelSystem::SystemStatus> systemStatus)
     : VexHelperCountersSm("ZelCountersHelper"), mgr_(mgr), systemStatus_(std::move(systemStatus)) {
   queueCountersIncrementIs(true);
}

void ZelCountersHelper::doClearIntfQueueCounters(const Pelt::IntfId& intf, bool portChanged) {
   KILN_TRACE(5, "doClearIntfQueueCounters, intf: " << intf << ", portChanged: " << portChanged);
}

} // namespace ZelCounter

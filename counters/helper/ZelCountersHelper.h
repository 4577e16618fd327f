// The adapter through which the forwarding layer reads and clears this chip family's counters.
#pragma once

#include "l3/ZelCountersL3Intf.h"
#include "vex/VexHelper.h"
#include "zel/SystemStatus.h"

namespace ZelCounter {

class ZelCountersMgr;

// One a process, made by the counters manager. Activity thread.
class ZelCountersHelper : public VexHelper::VexHelperCountersSm {
 public:
   // The manager owns this and is not counted.
   ZelCountersHelper(ZelCountersMgr* mgr, Kiln::Ptr<const ZelSystem::SystemStatus> systemStatus);

   void doClearIntfQueueCounters(const Pelt::IntfId& intf, bool portChanged) override;

 private:
   ZelCountersMgr* mgr_;
   Kiln::Ptr<const ZelSystem::SystemStatus> systemStatus_;
};

// The subinterfaces' counterpart.
class ZelCountersSubIntfCountersHelper : public VexHelper::VexHelperSubIntfCountersSm {
 public:
   explicit ZelCountersSubIntfCountersHelper(Kiln::Ptr<ZelCountersL3IntfSm> l3IntfSm)
        : l3IntfSm_(std::move(l3IntfSm)) {}

 private:
   Kiln::Ptr<ZelCountersL3IntfSm> l3IntfSm_;
};

} // namespace ZelCounter

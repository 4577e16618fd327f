// What the manager's services (the forwarding layer's helper, the commands) ask of it.
#pragma once

#include "kiln/Collections.h"
#include "kiln/Ptr.h"
#include "zel/ZelId.h"

namespace Vex::Counters {
class CountersSm;
}
namespace ZelSystem {
class SystemStatus;
}

namespace ZelCounter {

class CountersMounts;
class ZelCounters;
class ZelCountersL3IntfSm;

// The manager implements this. Its services hold it by a raw back-pointer and know no more of it, so that none of them
// includes the manager, which includes them all. Activity thread.
class ManagerAccess {
 public:
   // The chips by device id, in the order in which they came; null for no chip.
   virtual const Kiln::HashMap<ZelId::ZelDevId, Kiln::Ptr<ZelCounters>>& zelCounters() const = 0;
   virtual const Kiln::Ptr<ZelCounters>& zelCounters(ZelId::ZelDevId devId) const = 0;

   virtual const Kiln::Ptr<const ZelSystem::SystemStatus>& systemStatus() const = 0;
   virtual const Kiln::Ptr<CountersMounts>& mounts() const = 0;
   virtual const Kiln::Ptr<Vex::Counters::CountersSm>& vexCountersSm() const = 0;
   virtual const Kiln::Ptr<ZelCountersL3IntfSm>& zelCountersL3IntfSm() const = 0;

 protected:
   ~ManagerAccess() = default;
};

} // namespace ZelCounter

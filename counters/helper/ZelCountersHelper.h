// The adapter through which the forwarding layer reads and clears this chip family's counters.
#pragma once

#include "counters/l3/ZelCountersL3Intf.h"
#include "vex/VexHelper.h"
#include "zel/SystemStatus.h"

namespace ZelCounter {

class ManagerAccess;
class ZelCounters;

// One a process, made by the counters manager. Passes requests about an interface on to the chip that has it, or to the
// L3 reactor. Activity thread.
class ZelCountersHelper : public VexHelper::VexHelperCountersSm {
 public:
   // The manager owns this and is held by a raw pointer. The forwarding layer may hold this longer: once the manager has
   // let go of it, no interface is known.
   ZelCountersHelper(ManagerAccess* mgr, Kiln::Ptr<const ZelSystem::SystemStatus> systemStatus);
   void mgrDel() { mgr_ = nullptr; }

   void getIntfQueueType(const Pelt::IntfId& intf, VexTypes::IntfQueueType& type) override;
   bool initializeVlanIntfCounters(const Pelt::IntfId& vlanIntf, U16 vlan) override;
   void deleteVlanIntfCounters(const Pelt::IntfId& vlanIntf) override;
   U64 getIntfAclDropCounters(const Pelt::IntfId& intf) override;
   bool getVlanIntfCounters(const Pelt::IntfId& vlanIntf, const Kiln::Ptr<VexTypes::L3IntfCounters>& current,
                            const Kiln::Ptr<VexTypes::L3IntfCounters>& previous) override;
   void getCounters(const Pelt::IntfId& intf, const Kiln::Ptr<VexTypes::IntfCounters>& record,
                    const Kiln::Ptr<VexTypes::IntfCounters>& previous) override;
   void getCoppCounters() override;
   void hwInit() override;
   void initialize(const Pelt::IntfId& intf) override;
   void doClearCounters(const Kiln::String& name) override;
   VexTypes::IntfQueueCounters getIntfQueueCounters(const Pelt::IntfId& intf,
                                                    VexTypes::IntfQueueCounters record) override;
   void doClearIntfQueueCounters(const Pelt::IntfId& intf, bool portChanged) override;

 private:
   // Creates the interface's missing entries in the shared queue table.
   void createSharedQueues(const Pelt::IntfId& intf, unsigned queues);

   // The chip that has the interface, if any.
   Kiln::Ptr<ZelCounters> chipOf(const Pelt::IntfId& intf) const;

   ManagerAccess* mgr_; // owns this; null once it has let go
   Kiln::Ptr<const ZelSystem::SystemStatus> systemStatus_;
};

// The same for subinterfaces. They have L3 counters only.
class ZelCountersSubIntfCountersHelper : public VexHelper::VexHelperSubIntfCountersSm {
 public:
   explicit ZelCountersSubIntfCountersHelper(Kiln::Ptr<ZelCountersL3IntfSm> l3IntfSm)
        : l3IntfSm_(std::move(l3IntfSm)) {}

   Kiln::String frameworkType() const override { return "ZelCounter::ZelCountersSubIntfCountersHelper"; }
   bool getSubIntfCounters(const Pelt::IntfId& intf, const Kiln::Ptr<VexTypes::L3IntfCounters>& current,
                           const Kiln::Ptr<VexTypes::L3IntfCounters>& previous) override;

 private:
   Kiln::Ptr<ZelCountersL3IntfSm> l3IntfSm_;
};

} // namespace ZelCounter

// What the forwarding layer asks of the chip family: the base classes of its helpers. Activity thread.
#pragma once

#include "kiln/Accessors.h"
#include "kiln/Entity.h"
#include "kiln/Name.h"
#include "vex/VexTypes.h"
#include "zel/Pelt.h"

namespace VexHelper {

// One a process. No operation throws for an interface that it does not know.
class VexHelperCountersSm : public Kiln::Entity {
 public:
   explicit VexHelperCountersSm(Kiln::Name name) : name_(name) {}

   const Kiln::Name& name() const { return name_; }

   virtual void getIntfQueueType(const Pelt::IntfId& intf, VexTypes::IntfQueueType& type) = 0;

   // The forwarding layer begins or ends to count a VLAN interface. False: it can't be counted.
   virtual bool initializeVlanIntfCounters(const Pelt::IntfId& vlanIntf, U16 vlan) = 0;
   virtual void deleteVlanIntfCounters(const Pelt::IntfId& vlanIntf) = 0;
   virtual U64 getIntfAclDropCounters(const Pelt::IntfId& intf) = 0;
   // Fills `current`. False: the interface has no counters, and `current` means nothing.
   virtual bool getVlanIntfCounters(const Pelt::IntfId& vlanIntf,
                                    const Kiln::Ptr<VexTypes::L3IntfCounters>& current,
                                    const Kiln::Ptr<VexTypes::L3IntfCounters>& previous) = 0;
   // Fills `record` with the latest reading, or leaves it alone when there is none. In `previous`, the reading
   // that was published last, a counter whose step was an upset is absorbed: set to its new value, so that it
   // has no step.
   virtual void getCounters(const Pelt::IntfId& intf, const Kiln::Ptr<VexTypes::IntfCounters>& record,
                            const Kiln::Ptr<VexTypes::IntfCounters>& previous) = 0;
   virtual void getCoppCounters() = 0;
   // Once, before anything else.
   virtual void hwInit() = 0;
   // The forwarding layer begins to count an interface, for the first time or after a restart: sets the
   // previous record of the interface's port counter reactor.
   virtual void initialize(const Pelt::IntfId& intf) = 0;
   // Clears the counters whose baseline is the helper's own, of the interface of that name or of "all".
   virtual void doClearCounters(const Kiln::String& name) = 0;
   // The queue counters as last read.
   virtual VexTypes::IntfQueueCounters getIntfQueueCounters(const Pelt::IntfId& intf,
                                                            VexTypes::IntfQueueCounters record) = 0;
   // Clears the queue counters of an interface; `portChanged` when the port has just appeared or changed.
   virtual void doClearIntfQueueCounters(const Pelt::IntfId& intf, bool portChanged) = 0;

   // Queue counters are reported as increments: the forwarding layer adds up the differences of consecutive
   // reports, and a report below the one before is a restart. Otherwise it publishes them as they are.
   KILN_ATTRIBUTE(bool, queueCountersIncrement, false)

 private:
   Kiln::Name name_;
};

class VexHelperSubIntfCountersSm : public Kiln::Entity {
 public:
   // Like getVlanIntfCounters.
   virtual bool getSubIntfCounters(const Pelt::IntfId& intf,
                                   const Kiln::Ptr<VexTypes::L3IntfCounters>& current,
                                   const Kiln::Ptr<VexTypes::L3IntfCounters>& previous) = 0;
};

} // namespace VexHelper

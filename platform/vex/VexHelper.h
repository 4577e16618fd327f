// What the forwarding layer needs from the chip family: the base classes of its helpers. Activity thread.
#pragma once

#include "kiln/Accessors.h"
#include "kiln/Entity.h"
#include "kiln/Name.h"
#include "vex/VexTypes.h"
#include "zel/Pelt.h"

namespace VexHelper {

// One per process. No operation throws for an unknown interface. Nothing here calls getIntfQueueType,
// getIntfAclDropCounters or getCoppCounters: they belong to the interface, and other forwarding layers may.
class VexHelperCountersSm : public Kiln::Entity {
 public:
   explicit VexHelperCountersSm(Kiln::Name name) : name_(name) {}

   const Kiln::Name& name() const { return name_; }

   virtual void getIntfQueueType(const Pelt::IntfId& intf, VexTypes::IntfQueueType& type) = 0;

   // The forwarding layer begins or stops counting a VLAN interface. False: it cannot be counted.
   virtual bool initializeVlanIntfCounters(const Pelt::IntfId& vlanIntf, U16 vlan) = 0;
   virtual void deleteVlanIntfCounters(const Pelt::IntfId& vlanIntf) = 0;
   virtual U64 getIntfAclDropCounters(const Pelt::IntfId& intf) = 0;
   // Fills `current`. False: the interface has no counters, and `current` is not valid.
   virtual bool getVlanIntfCounters(const Pelt::IntfId& vlanIntf,
                                    const Kiln::Ptr<VexTypes::L3IntfCounters>& current,
                                    const Kiln::Ptr<VexTypes::L3IntfCounters>& previous) = 0;
   // Fills `record` with the latest reading, or leaves it alone if there is none. `previous` has the reading published
   // last; a counter whose step was an upset is absorbed there: it is set to its new value, so that it makes no step.
   virtual void getCounters(const Pelt::IntfId& intf, const Kiln::Ptr<VexTypes::IntfCounters>& record,
                            const Kiln::Ptr<VexTypes::IntfCounters>& previous) = 0;
   virtual void getCoppCounters() = 0;
   // Once, before anything else.
   virtual void hwInit() = 0;
   // The forwarding layer begins to count an interface, for the first time or after a restart. Sets the previous record
   // of the interface's port counter reactor.
   virtual void initialize(const Pelt::IntfId& intf) = 0;
   // Clears the counters whose baseline the helper keeps, of the interface of that name or of "all".
   virtual void doClearCounters(const Kiln::String& name) = 0;
   // The queue counters as last read.
   virtual VexTypes::IntfQueueCounters getIntfQueueCounters(const Pelt::IntfId& intf,
                                                            VexTypes::IntfQueueCounters record) = 0;
   // Clears the queue counters of an interface. `portChanged`: the port has just appeared or changed.
   virtual void doClearIntfQueueCounters(const Pelt::IntfId& intf, bool portChanged) = 0;

   // True: queue counters are reported as increments. The forwarding layer adds up the differences between reports, and
   // takes a lower report for a restart. False: it publishes them as they are.
   KILN_ATTRIBUTE(bool, queueCountersIncrement, false)

 private:
   Kiln::Name name_;
};

class VexHelperSubIntfCountersSm : public Kiln::Entity {
 public:
   // The framework's name of the object's class.
   virtual Kiln::String frameworkType() const { return "VexHelper::VexHelperSubIntfCountersSm"; }

   // Like getVlanIntfCounters.
   virtual bool getSubIntfCounters(const Pelt::IntfId& intf,
                                   const Kiln::Ptr<VexTypes::L3IntfCounters>& current,
                                   const Kiln::Ptr<VexTypes::L3IntfCounters>& previous) = 0;
};

} // namespace VexHelper

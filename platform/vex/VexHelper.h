// What the forwarding layer asks of the chip family: the base classes of its helpers.
#pragma once

#include "kiln/Accessors.h"
#include "kiln/Entity.h"
#include "kiln/Name.h"
#include "zel/Pelt.h"

namespace VexHelper {

class VexHelperCountersSm : public Kiln::Entity {
 public:
   explicit VexHelperCountersSm(Kiln::Name name) : name_(name) {}

   const Kiln::Name& name() const { return name_; }

   // Clears the queue counters of an interface; `portChanged` when the port has just appeared or changed.
   virtual void doClearIntfQueueCounters(const Pelt::IntfId& intf, bool portChanged) = 0;

   // Queue counters are reported as increments.
   KILN_ATTRIBUTE(bool, queueCountersIncrement, false)

 private:
   Kiln::Name name_;
};

class VexHelperSubIntfCountersSm : public Kiln::Entity {};

} // namespace VexHelper

// How counters are handed over to the forwarding layer.
#pragma once

#include "kiln/Accessors.h"
#include "kiln/Entity.h"
#include "vex/VexTypes.h"

#include <functional>

namespace Vex::Counters {

// A chip family hands over the counters that it reads of its own accord here. The counters reactor watches it and
// publishes. Activity thread.
class WriterConfig : public Kiln::Entity {
 public:
   class Notifiee : public Kiln::NotifieeOf<WriterConfig> {
    public:
      using NotifieeOf::NotifieeOf;
      virtual void onIntfQueueCounters(const Pelt::IntfId&, const VexTypes::IntfQueueCounters&) {}
      virtual void onIntfQueueCountersDel(const Pelt::IntfId&) {}
   };
   KILN_NOTIFIER

   WriterConfig() { hasNotificationActiveIs(true); }

   // An interface's queues were read or cleared. They are published before this returns. The report must not end before,
   // whatever is done on the way: it is not copied.
   void intfQueueCountersIs(const Pelt::IntfId& intf, const VexTypes::IntfQueueCounters& counters) {
      notify(&Notifiee::onIntfQueueCounters, intf, std::cref(counters));
   }
   // The interface has no queues any more: its records go.
   void intfQueueCountersDel(const Pelt::IntfId& intf) { notify(&Notifiee::onIntfQueueCountersDel, intf); }
};

// Whether a kind of counters is being written.
class WriterStatus : public Kiln::PtrInterface {
 public:
   KILN_ATTRIBUTE(bool, active, false)
};

// The forwarding layer's command settings. Only carried among the mounts: nothing here reads them.
class CliConfig : public Kiln::PtrInterface {};

} // namespace Vex::Counters

// Who writes the counters.
#pragma once

#include "kiln/Accessors.h"
#include "kiln/Entity.h"
#include "vex/VexTypes.h"

namespace Vex::Counters {

// Where a chip family hands over counters that it reads of its own accord. The counters reactor watches it
// and publishes. Activity thread.
class WriterConfig : public Kiln::Entity {
 public:
   class Notifiee : public Kiln::NotifieeOf<WriterConfig> {
    public:
      using NotifieeOf::NotifieeOf;
      virtual void onIntfQueueCounters(const Pelt::IntfId&, const VexTypes::IntfQueueCounters&) {}
   };
   KILN_NOTIFIER

   WriterConfig() { hasNotificationActiveIs(true); }

   // An interface's queues were read, or cleared. Published before this returns.
   void intfQueueCountersIs(const Pelt::IntfId& intf, const VexTypes::IntfQueueCounters& counters) {
      notify(&Notifiee::onIntfQueueCounters, intf, counters);
   }
};

// Whether a kind of counters is written.
class WriterStatus : public Kiln::PtrInterface {
 public:
   KILN_ATTRIBUTE(bool, active, false)
};

class CliConfig : public Kiln::PtrInterface {};

} // namespace Vex::Counters

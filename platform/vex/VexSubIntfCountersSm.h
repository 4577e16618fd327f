// The forwarding layer's subinterface counters reactor.
#pragma once

#include "kiln/TimerWheel.h"
#include "vex/L3Counters.h"
#include "vex/SharedTables.h"
#include "vex/VexHelper.h"
#include "zel/InterfaceDirs.h"

namespace Vex {

// Publishes the counters of the subinterfaces in the status directory, and keeps their clear baselines.
// Activity thread.
class SubIntfCountersSm : public Kiln::Entity {
 public:
   // The wheel, the clock and the helper are required. Any other pointer may be null; what depends on it is left out.
   struct Context {
      Kiln::Ptr<Oxbow::TimerWheel> timerWheel;
      Kiln::Ptr<const Interface::SubIntfStatusDir> subIntfStatusDir;
      Kiln::Ptr<Silo::Interface::SubIntfCountersDir> subIntfCountersDir;
      Kiln::Ptr<Silo::Interface::SubIntfCountersSnapshotDir> subIntfCountersSnapshotDir;
      double pollInterval; // seconds
      Kiln::Ptr<const Kiln::Clock> clock;
      Kiln::Ptr<VexHelper::VexHelperSubIntfCountersSm> helper;
   };

   explicit SubIntfCountersSm(Context context);
   ~SubIntfCountersSm() override;

   // Switched on, begins to count the subinterfaces that exist. Switched off, reads nothing more.
   void hasNotificationActiveIs(bool active) override;

   // A chip was asked for its counters: the subinterfaces are due. They are read once at the end of this turn
   // of the loop, however many chips were asked.
   virtual void updateCounters();

   // These are like the counters reactor's.
   void readSubIntf(const Pelt::IntfId& intf) { subIntfs_.read(intf); }
   void forgetAbsentInterfaces();
   bool clear(const Kiln::String& name);

 private:
   struct KilnSubIntfStatusDir : Interface::SubIntfStatusDir::Notifiee {
      explicit KilnSubIntfStatusDir(SubIntfCountersSm* owner) : Notifiee(owner), sm(owner) {}
      void onIntfStatus(const Pelt::IntfId& intf) override { sm->handleSubIntfStatus(intf); }
      SubIntfCountersSm* sm;
   };
   // Reads when nobody has asked for one and a half poll intervals. The half keeps it from racing with chips that are
   // polled at the same interval.
   struct Watchdog : Oxbow::TimerWheel::Timer {
      Watchdog(Kiln::Ptr<Oxbow::TimerWheel> wheel, SubIntfCountersSm* owner)
           : Timer(std::move(wheel)), sm(owner) {}
      void onTime() override { sm->updateCounters(); }
      SubIntfCountersSm* sm;
   };

   void handleSubIntfStatus(const Pelt::IntfId& intf);

   Context context_;
   L3Counters subIntfs_;
   Watchdog watchdog_;
   KilnSubIntfStatusDir subIntfStatusDirNotifiee_;
};

} // namespace Vex

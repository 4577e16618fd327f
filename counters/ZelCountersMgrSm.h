// The manager's reactor: the polling clock, and the reaction to ports that come and change.
#pragma once

#include "kiln/Accessors.h"
#include "kiln/Clock.h"
#include "zel/SystemStatus.h"

namespace ZelCounter {

class ZelCountersMgr;

// Owned by the manager. Activity thread.
class ZelCountersMgrSm : public Kiln::Entity {
 public:
   ZelCountersMgrSm(ZelCountersMgr* mgr, Kiln::Ptr<const ZelSystem::SystemStatus> systemStatus,
                    Kiln::Ptr<const Kiln::Clock> clock);

   // When the next polling pass is due.
   double intfCounterPollingTimeMin() const { return intfCounterPollingClock_.timeMin(); }

   KILN_ATTRIBUTE(bool, initialized, false)

 private:
   struct KilnSystemStatus : ZelSystem::SystemStatus::Notifiee {
      explicit KilnSystemStatus(ZelCountersMgrSm* owner) : Notifiee(owner), sm(owner) {}
      void onPortInfo(const Pelt::IntfId& intf) override { sm->handlePortInfo(intf); }
      ZelCountersMgrSm* sm;
   };
   struct KilnClock : Kiln::Clock::Notifiee {
      KilnClock(Kiln::Ptr<const Kiln::Clock> clock, ZelCountersMgrSm* owner)
           : Notifiee(std::move(clock)), sm(owner) {}
      void onTime() override { sm->intfCounterPollingClockExpired(); }
      ZelCountersMgrSm* sm;
   };

   void handleInitialized();
   void handlePortInfo();
   void handlePortInfo(const Pelt::IntfId& intf);
   void intfCounterPollingClockExpired();
   void armPollingClock();
   void publishInterval(double seconds);
   void publishQueueInterval();

   ZelCountersMgr* mgr_; // owns this
   KilnSystemStatus systemStatus_;
   KilnClock intfCounterPollingClock_;
   double publishedInterval_ = 0;      // seconds; 0 for none yet
   double publishedQueueInterval_ = 0; // the same
};

} // namespace ZelCounter

// The library's root: the counters of every chip, and the services around them.
#pragma once

#include "agent/AgentCommand.h"
#include "counters/chip/ManagerAccess.h"
#include "counters/drops/CliPortDropData.h"
#include "counters/helper/CountersMounts.h"
#include "kiln/Accessors.h"
#include "kiln/Name.h"
#include "kiln/Timer.h"
#include "vex/VexCommonSmData.h"
#include "zel/ChipStatus.h"
#include "zel/SystemStatus.h"
#include "zel/TmCountersData.h"
#include "zel/ZelDevProfile.h"
#include "zl/ZlPd.h"
#include "zl/ZlResourceInfo.h"

#include <functional>

// This header brings the types that the manager is made with. Who uses what it owns includes that header, too.
namespace Oxbow {
class TimerWheel;
}
namespace Vex {
class SubIntfCountersSm;
class VexL3IntfData;
} // namespace Vex

namespace ZelCounter {

class ZelCountersCli;
class ZelCountersHelper;
class ZelCountersMgrSm;
class ZelCountersSubIntfCountersHelper;
class ZelVlanIntfSm;

// The agent makes one with zelCountersMgrFactory. Everything runs on the activity thread.
class ZelCountersMgr : public Kiln::Entity, public ManagerAccess {
 public:
   // Use the factory. Asserts that there is a cliRequestDirSm.
   ZelCountersMgr(Kiln::Ptr<const ZelSystem::SystemStatus> systemStatus, Kiln::Ptr<CountersMounts> mounts,
                  Kiln::Ptr<Vex::VexCommonSmData> vexCommonSmData,
                  Kiln::Ptr<Agent::AgentCommandRequestDirSm> cliRequestDirSm,
                  Kiln::Ptr<ZelQos::TmCountersData> tmCountersData,
                  Kiln::Ptr<ZelQos::TmCountersData> tmCountersDataLastClear,
                  Kiln::Ptr<CliPortDropData> cliPortDropData);
   // Reads once more what the SDK gives at once (queues, drops, pipeline, traffic manager, VLANs), and publishes it: so
   // the SDK has to answer still, if only with errors. Neither reads ports nor syncs tables, which complete later: of what
   // these counted, the last polls stand. The same goes for deleteChip.
   ~ZelCountersMgr() override;

   // A chip came up. If its device id is in use, it takes that chip's place, as if the old one had been deleted first, but
   // without its last reads. VLANs are enabled in slices: under a hold that is not nested, others may get in meanwhile. Throws std::range_error for a device id above 7. A chip that counts QoS-policy drops needs
   // their mount (assertion). After an exception there is no chip of that device id.
   void addChip(ZelId::ZelDevId devId, Kiln::String chipName, const ZelDriver::ZelDevProfile& devProfile,
                U32 sessionId, Kiln::Ptr<ZlPd::ZlPdIntf> zlPdIntf,
                Kiln::Ptr<ZlResourceInfo::ZlResourceInfoIntf> zlResourceInfoIntf,
                Kiln::Ptr<const ZelSlice::ChipStatus> chipStatus);
   // A chip went away. Removes every chip of that name; does nothing for an unknown one.
   void deleteChip(Kiln::String chipName);

   // Starts the reads of every chip's ports, besides those of the clock. Syncs no table. VLANs are marked due in slices, as
   // in addChip.
   void requestHwCountersPolling();

   // Removes the shared records of interfaces that an earlier process published and that are not there any more. To be
   // called once the agent has the interfaces that it begins with.
   void forgetAbsentInterfaces();

   // With each polling pass: how chips and agent fare, and where interfaces are.
   void publishHealth();
   void publishHealth(const ZelCounters& chip);
   void publishAgentHealth();
   // An interface got a port, got another one, or lost its port: what was counted elsewhere is not its own.
   void handlePort(const Pelt::IntfId& intf);

   // Creates the command handler; does nothing when it has that name and type already.
   void cliCallbackIs(Kiln::Name name, const Kiln::String& commandType, ZelCountersMgr* mgr);

   // Seconds from the end of one polling pass to the start of the next; taken up, and told to the readers of
   // the shared tables, when the clock is armed next. Throws std::range_error unless positive and finite.
   KILN_SECONDS(sdkPollingInterval, 2.0)
   // Subinterfaces are read that often, in seconds, even when polling passes are rarer.
   static constexpr double subIntfPollInterval = 2.0;

   // The chips by device id, in the order in which they came. A chip that is removed or replaced is stopped.
   const Kiln::HashMap<ZelId::ZelDevId, Kiln::Ptr<ZelCounters>>& zelCounters() const override {
      return zelCounters_;
   }
   const Kiln::Ptr<ZelCounters>& zelCounters(ZelId::ZelDevId devId) const override;
   void zelCountersIs(Kiln::Ptr<ZelCounters> zelCounters);
   void zelCountersDel(ZelId::ZelDevId devId);
   void zelCountersDelAll();

   // What the manager was made with.
   KILN_POINTER_TO(const ZelSystem::SystemStatus, systemStatus, override)
   KILN_POINTER_TO(CountersMounts, mounts, override)
   KILN_POINTER_TO(Vex::VexCommonSmData, vexCommonSmData)
   KILN_POINTER_TO(Agent::AgentCommandRequestDirSm, cliRequestDirSm)
   KILN_POINTER_TO(ZelQos::TmCountersData, tmCountersData)
   KILN_POINTER_TO(ZelQos::TmCountersData, tmCountersDataLastClear)
   KILN_POINTER_TO(CliPortDropData, cliPortDropData)

   // The services that the construction builds.
   const Kiln::Ptr<ZelCountersCli>& cliCallback() const { return cliCallback_; }
   void cliCallbackDel();
   const Kiln::Ptr<ZelCountersMgrSm>& countersMgrSm() const { return countersMgrSm_; }
   void countersMgrSmIs(ZelCountersMgr* mgr, Kiln::Ptr<const ZelSystem::SystemStatus> systemStatus,
                        Kiln::Ptr<const Kiln::Clock> clock);
   void countersMgrSmDel();
   KILN_POINTER_TO(Vex::VexL3IntfData, vexL3IntfData)
   KILN_POINTER_TO(ZelCountersSubIntfCountersHelper, zelSubIntfCountersHelper)
   // These stop when they are let go of, whoever still holds them.
   KILN_POINTER_TO(Vex::Counters::CountersSm, vexCountersSm, override)
   KILN_POINTER_TO(ZelCountersL3IntfSm, zelCountersL3IntfSm, override)
   KILN_POINTER_TO(Vex::SubIntfCountersSm, vexSubIntfCountersSm)
   KILN_POINTER_TO(ZelCountersHelper, zelCountersHelper)
   KILN_POINTER_TO(ZelVlanIntfSm, vlanIntfSm)

   // Set once the construction has run.
   KILN_ATTRIBUTE(bool, initialized, false)

 private:
   void handleInitialized();
   // The steps of the construction.
   void zelCountersHelperIs(ZelCountersMgr* mgr, Kiln::Ptr<const ZelSystem::SystemStatus> systemStatus);
   void vexCountersSmIs();
   void vlanIntfSmIs();
   void vexL3IntfDataIs(Kiln::Name name);
   void zelCountersL3IntfSmIs();
   void zelSubIntfCountersHelperIs();
   void vexSubIntfCountersSmIs(Kiln::Ptr<Oxbow::TimerWheel> timerWheel,
                               const Kiln::Ptr<ZelCountersSubIntfCountersHelper>& helper);

   void deleteDevice(ZelId::ZelDevId devId, bool isReadOnceMore, const Kiln::String& successor = {});
   void forgetAbsentChips();
   void readOnceMore();
   void stop();

   Kiln::Ptr<ZelCountersCli> cliCallback_;
   Kiln::Ptr<CliPortDropData> dropData_;         // the one that was given, or one of its own
   Kiln::Ptr<Vex::ChipPublisher> chipPublisher_; // null without tables for it
   Kiln::Ptr<ZelCountersMgrSm> countersMgrSm_;
   Kiln::HashMap<ZelId::ZelDevId, Kiln::Ptr<ZelCounters>> zelCounters_;
};

// The manager's reactor: the polling clock, and what happens when ports come and change. Owned by the manager.
class ZelCountersMgrSm : public Kiln::Entity {
 public:
   ZelCountersMgrSm(ZelCountersMgr* mgr, Kiln::Ptr<const ZelSystem::SystemStatus> systemStatus,
                    Kiln::Ptr<const Kiln::Clock> clock);
   // There are no more passes, and nothing is watched, whoever still holds this.
   void stop();

   // When the next polling pass is due.
   double intfCounterPollingTimeMin() const { return intfCounterPollingClock_.timeMin(); }

   KILN_ATTRIBUTE(bool, initialized, false)

 private:
   struct KilnSystemStatus : ZelSystem::SystemStatus::Notifiee {
      explicit KilnSystemStatus(ZelCountersMgrSm* owner) : Notifiee(owner), sm(owner) {}
      void onPortInfo(const Pelt::IntfId& intf) override { sm->handlePortInfo(intf); }
      ZelCountersMgrSm* sm;
   };
   void handleInitialized();
   void handlePortInfo();
   void handlePortInfo(const Pelt::IntfId& intf);
   void intfCounterPollingClockExpired();
   void armPollingClock();
   void mendTables();
   void forEachChip(const std::function<void(ZelCounters&)>& operation);
   void publishInterval(double seconds);
   void publishQueueInterval();
   void publishSyncInterval();

   ZelCountersMgr* mgr_; // owns this; null once stopped
   KilnSystemStatus systemStatus_;
   Kiln::Timer<ZelCountersMgrSm> intfCounterPollingClock_;
   double publishedInterval_ = 0;      // seconds; 0 for none yet
   double publishedQueueInterval_ = 0; // the same
   double publishedSyncInterval_ = 0;  // the same
};

// Makes the manager, wired and with its polling clock armed. Activity thread.
Kiln::Ptr<ZelCountersMgr> zelCountersMgrFactory(Kiln::Ptr<const ZelSystem::SystemStatus> systemStatus,
                                                Kiln::Ptr<CountersMounts> mounts,
                                                Kiln::Ptr<Vex::VexCommonSmData> vexCommonSmData,
                                                Kiln::Ptr<Agent::AgentCommandRequestDirSm> cliRequestDirSm,
                                                Kiln::Ptr<ZelQos::TmCountersData> tmCountersData,
                                                Kiln::Ptr<ZelQos::TmCountersData> tmCountersDataLastClear,
                                                Kiln::Ptr<CliPortDropData> cliPortDropData);

} // namespace ZelCounter

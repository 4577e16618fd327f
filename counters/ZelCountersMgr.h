// The library's root: the counters of every chip, and the services around them.
#pragma once

#include "agent/AgentCommand.h"
#include "counters/CountersMounts.h"
#include "counters/ZelCounters.h"
#include "counters/helper/ZelCountersHelper.h"
#include "counters/l3/ZelCountersL3Intf.h"
#include "kiln/TimerWheel.h"
#include "vex/VexL3Intf.h"

namespace ZelCounter {

class ZelCountersCli;
class ZelCountersMgrSm;

// The agent makes one with zelCountersMgrFactory. Everything runs on the activity thread.
class ZelCountersMgr : public Kiln::Entity {
 public:
   // Use the factory. An absent cliRequestDirSm is an assertion.
   ZelCountersMgr(Kiln::Ptr<const ZelSystem::SystemStatus> systemStatus, Kiln::Ptr<CountersMounts> mounts,
                  Kiln::Ptr<Vex::VexCommonSmData> vexCommonSmData,
                  Kiln::Ptr<Agent::AgentCommandRequestDirSm> cliRequestDirSm,
                  Kiln::Ptr<ZelQos::TmCountersData> tmCountersData,
                  Kiln::Ptr<ZelQos::TmCountersData> tmCountersDataLastClear,
                  Kiln::Ptr<CliPortDropData> cliPortDropData);
   ~ZelCountersMgr() override;

   // A chip came up. A chip under a device id that is in use takes its place, as if it had been deleted
   // first. A device id above 7 is a std::range_error. A chip that counts QoS-policy drops needs the mount
   // for them (assertion).
   void addChip(ZelId::ZelDevId devId, const Kiln::String& chipName,
                const ZelDriver::ZelDevProfile& devProfile, U32 sessionId, Kiln::Ptr<ZlPd::ZlPdIntf> zlPdIntf,
                Kiln::Ptr<ZlResourceInfo::ZlResourceInfoIntf> zlResourceInfoIntf,
                Kiln::Ptr<const ZelSlice::ChipStatus> chipStatus);
   // A chip went away. Every chip of that name goes; an unknown name does nothing.
   void deleteChip(const Kiln::String& chipName);

   // Starts the reads of every chip's ports.
   void requestHwCountersPolling();

   // Creates the command handler; does nothing when there is one of that name and type.
   void cliCallbackIs(Kiln::Name name, const Kiln::String& commandType, ZelCountersMgr* mgr);

   // Seconds from the end of one polling pass to the start of the next; taken up, and told to the readers of
   // the shared tables, when the clock is armed next. Not positive or not finite is a std::range_error.
   double sdkPollingInterval() const { return sdkPollingInterval_; }
   void sdkPollingIntervalIs(double seconds);
   // Subinterfaces are read that often, in seconds, also when polling passes are rarer.
   static constexpr double subIntfPollInterval = 2.0;

   // The chips by device id, in the order in which they came. A chip that is removed or replaced is stopped.
   const Kiln::HashMap<ZelId::ZelDevId, Kiln::Ptr<ZelCounters>>& zelCounters() const { return zelCounters_; }
   const Kiln::Ptr<ZelCounters>& zelCounters(ZelId::ZelDevId devId) const {
      return Kiln::valueOrDefault(zelCounters_, devId);
   }
   void zelCountersIs(Kiln::Ptr<ZelCounters> zelCounters);
   void zelCountersDel(ZelId::ZelDevId devId);
   void zelCountersDelAll();

   KILN_POINTER(const ZelSystem::SystemStatus, systemStatus)
   KILN_POINTER(CountersMounts, mounts)
   KILN_POINTER(Vex::VexCommonSmData, vexCommonSmData)
   KILN_POINTER(Agent::AgentCommandRequestDirSm, cliRequestDirSm)
   KILN_POINTER(ZelQos::TmCountersData, tmCountersData)
   KILN_POINTER(ZelQos::TmCountersData, tmCountersDataLastClear)
   KILN_POINTER(CliPortDropData, cliPortDropData)

   // The services that the construction builds.
   const Kiln::Ptr<ZelCountersCli>& cliCallback() const { return cliCallback_; }
   void cliCallbackDel();
   const Kiln::Ptr<ZelCountersMgrSm>& countersMgrSm() const { return countersMgrSm_; }
   void countersMgrSmIs(ZelCountersMgr* mgr, Kiln::Ptr<const ZelSystem::SystemStatus> systemStatus,
                        Kiln::Ptr<const Kiln::Clock> clock);
   void countersMgrSmDel();
   KILN_POINTER(Vex::Counters::CountersSm, vexCountersSm)
   KILN_POINTER(Vex::VexL3IntfData, vexL3IntfData)
   KILN_POINTER(ZelCountersL3IntfSm, zelCountersL3IntfSm)
   KILN_POINTER(ZelCountersSubIntfCountersHelper, zelSubIntfCountersHelper)
   KILN_POINTER(Vex::SubIntfCountersSm, vexSubIntfCountersSm)
   KILN_POINTER(ZelCountersHelper, zelCountersHelper)
   KILN_POINTER(ZelVlanIntfSm, vlanIntfSm)

   // Set once the construction has run.
   KILN_ATTRIBUTE(bool, initialized, false)

 private:
   void handleInitialized();
   // The steps of the construction that need more than a pointer.
   void zelCountersHelperIs(ZelCountersMgr* mgr, Kiln::Ptr<const ZelSystem::SystemStatus> systemStatus);
   void vexCountersSmIs(Vex::Counters::CountersSm::Context context);
   void vlanIntfSmIs();
   void vexL3IntfDataIs(Kiln::Name name);
   void zelCountersL3IntfSmIs();
   void zelSubIntfCountersHelperIs();
   void vexSubIntfCountersSmIs(Vex::SubIntfCountersSm::Context context);
   ZelSystem::ChipCapabilities capabilities(const ZelDriver::ZelDevProfile& devProfile) const;
   void addTmCounters(ZelId::ZelDevId devId, const Kiln::Ptr<const ZelSlice::ChipStatus>& chipStatus);
   void deleteDevice(ZelId::ZelDevId devId);

   Kiln::Ptr<ZelCountersCli> cliCallback_;
   double sdkPollingInterval_;
   Kiln::Ptr<ZelCountersMgrSm> countersMgrSm_;
   Kiln::HashMap<ZelId::ZelDevId, Kiln::Ptr<ZelCounters>> zelCounters_;
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

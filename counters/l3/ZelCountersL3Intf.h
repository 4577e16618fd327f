// Counters of L3 interfaces: VLAN interfaces and routed ports.
#pragma once

#include "counters/l3/ZelCountersL3Helper.h"
#include "kiln/Timer.h"
#include "vex/SharedTables.h"
#include "vex/VexCommonSmData.h"
#include "vex/VexCountersLog.h"
#include "vex/VexL3Intf.h"
#include "vex/VexTypes.h"
#include "zel/InterfaceDirs.h"

#include <functional>
#include <memory>
#include <span>
#include <vector>

namespace ZelCounter {

// Owned by the counters manager. Activity thread.
//
// Follows the L3 interface table: has the VLAN of each of its interfaces counted on every chip, and keeps a record of
// the interface's source-NAT counts in the shared NAT table, which must be there (assertion) before the first interface
// is. Totals that an earlier process left in the table go on.
class ZelCountersL3IntfSm : public Kiln::Entity {
 public:
   class RoutedPortCounterSm;
   using Parts = std::vector<VexTypes::L3IntfCounters::Meter::Reading>;

   ZelCountersL3IntfSm(Kiln::Ptr<const VexL3Intf::Table> vexL3IntfTable,
                       Kiln::Ptr<const ZelSystem::SystemStatus> systemStatus,
                       Kiln::Ptr<Silo::Interface::AllNatCounterDir> natCounterDir);
   ~ZelCountersL3IntfSm() override;
   // The manager ends: there are no more passes, nothing is watched or published, and the chips' helpers go. Whoever
   // still holds this finds it without interfaces.
   void stop();

   // A chip came: it counts the VLANs of all interfaces, if it can count VLANs at all. A chip that had the device id
   // before goes. In slices: may give way.
   void addDevice(ZelId::ZelDevId devId, const ZelDriver::ZelDevProfile& devProfile,
                  const Kiln::Ptr<ZlPd::ZlPdIntf>& zlPdIntf,
                  const Kiln::Ptr<ZlResourceInfo::ZlResourceInfoIntf>& zlResourceInfoIntf,
                  const Kiln::Ptr<const ZelSlice::ChipStatus>& chipStatus);
   // A chip went, and its entries with it.
   void deleteDevice(ZelId::ZelDevId devId);

   // Called with an interface before entries that it counts with go away: what reads it does so now. In that call a read
   // that fails answers like an unknown interface.
   using ReadOnceMore = std::function<void(const Pelt::IntfId&)>;
   void readOnceMoreIs(ReadOnceMore readOnceMore) { readOnceMore_ = std::move(readOnceMore); }
   // Removes the source-NAT records that an earlier process published, of interfaces that are not there.
   void forgetAbsentInterfaces();
   // Reads every interface once more: the agent ends, or a chip goes. In slices: may give way.
   void readAllOnceMore();

   // The interface's totals over all chips; what came in includes what was source-translated. Refreshes the interface's
   // NAT record. False for an unknown interface, whose pairs stay as they are.
   bool getIntfCounter(const Pelt::IntfId& intf, packets_and_bytes* rx, packets_and_bytes* tx);
   // The same, and each chip's part of it, for the continuity of the totals.
   bool getIntfCounter(const Pelt::IntfId& intf, packets_and_bytes* rx, packets_and_bytes* tx, Parts* parts);

   // The interface may have come or gone. Throws std::range_error for a VLAN outside 1 to 4094, and
   // std::invalid_argument for a name that can't be a key of a shared table; the interface is not added then.
   void handleIntfL3Index(const Pelt::IntfId& intf);
   // The same for every interface of the table; one that is refused is logged and left out. What a chip throws reaches
   // the caller after all were looked at.
   void handleIntfL3Index();

   // By device id, in the order in which the chips came.
   const Kiln::HashMap<ZelId::ZelDevId, Kiln::Ptr<ZelCountersL3Helper>>& helper() const { return helper_; }
   const Kiln::Ptr<ZelCountersL3Helper>& helper(ZelId::ZelDevId devId) const {
      return Kiln::valueOrDefault(helper_, devId);
   }
   // Makes the chip's helper, in place of the one that the device id had. The arguments are the factory's.
   const Kiln::Ptr<ZelCountersL3Helper>&
   helperIs(ZelId::ZelDevId devId, const ZelDriver::ZelDevProfile& devProfile,
            const Kiln::Ptr<const ZelSystem::SystemStatus>& systemStatus,
            const Kiln::Ptr<ZlPd::ZlPdIntf>& zlPdIntf,
            const Kiln::Ptr<ZlResourceInfo::ZlResourceInfoIntf>& zlResourceInfoIntf,
            const Kiln::Ptr<const ZelSlice::ChipStatus>& chipStatus);
   // Stops the chip's helper, if there is one.
   void helperDel(ZelId::ZelDevId devId);
   const Kiln::Ptr<RoutedPortCounterSm>& routedPortCounterSm() const { return routedPortCounterSm_; }

   KILN_HASH_MAP(Pelt::IntfId, Bridging::VlanId, l3IntfToVid)
   KILN_ATTRIBUTE(bool, initialized, false)

 private:
   struct KilnVexL3IntfTable : VexL3Intf::Table::Notifiee {
      explicit KilnVexL3IntfTable(ZelCountersL3IntfSm* owner) : Notifiee(owner), sm(owner) {}
      void onIntfL3Index(const Pelt::IntfId& intf) override { sm->handleIntfL3Index(intf); }
      ZelCountersL3IntfSm* sm;
   };

   void handleInitialized();
   void addIntf(const Pelt::IntfId& intf, U32 l3Id);
   void deleteIntf(const Pelt::IntfId& intf);
   // An interface's source-NAT counts as published, and what they go on from.
   struct NatCount {
      Silo::Interface::NatCounter record;
      Vex::DevicesMeter<1> meter{};
   };

   // What getIntfCounter does for an interface in l3IntfToVid.
   bool readIntf(const Pelt::IntfId& intf, Bridging::VlanId vlan, packets_and_bytes* rx,
                 packets_and_bytes* tx, Parts* parts);
   void readOnceMore(const Pelt::IntfId& intf, Bridging::VlanId vlan);
   NatCount& natCountOf(const Pelt::IntfId& intf);
   static void addNatCounts(NatCount& natCount, std::span<const Vex::DevicesMeter<1>::Reading> readings);
   void publishNatCounter(const Pelt::IntfId& intf, const Silo::Interface::NatCounter& natCounter);
   Silo::Interface::AllNatCounterDir& natCounterDir() const;

   KilnVexL3IntfTable vexL3IntfTable_;
   Kiln::Ptr<const ZelSystem::SystemStatus> systemStatus_;
   Kiln::Ptr<Silo::Interface::AllNatCounterDir> natCounterDir_;
   Kiln::HashMap<ZelId::ZelDevId, Kiln::Ptr<ZelCountersL3Helper>> helper_;
   Kiln::Ptr<RoutedPortCounterSm> routedPortCounterSm_;
   Kiln::HashMap<Pelt::IntfId, NatCount> natCounts_;
   std::vector<Vex::DevicesMeter<1>::Reading> natReadings_; // one for all interfaces
   ReadOnceMore readOnceMore_;
   bool isReadingOnceMore_ = false;
   Vex::PublishErrors publishErrors_;
};

// Refreshes the NAT record of every L3 interface: when it is made, and then one delay after each pass. Passes are made in
// slices.
class ZelCountersL3IntfSm::RoutedPortCounterSm : public Kiln::Entity {
 public:
   // Owned by the L3 interface reactor, which stops it before its own end.
   RoutedPortCounterSm(Kiln::Ptr<const Kiln::Clock> clock, ZelCountersL3IntfSm* l3IntfSm);
   // There are no more passes, whoever still holds this.
   void stop();

   void updateRoutedPortCounters();

   // Seconds; taken up at the end of the next pass. Throws std::range_error unless positive and finite.
   KILN_SECONDS(routedPortTimerDelay, 1.0)

   KILN_ATTRIBUTE(bool, initialized, false)

 private:
   void retryDeletions();
   void readAll();
   void giveWay() const;

   ZelCountersL3IntfSm* l3IntfSm_;   // owns this; null once stopped
   std::vector<Pelt::IntfId> intfs_; // of the pass
   Kiln::Timer<RoutedPortCounterSm> clock_;
};

// Keeps the forwarding layer's set of VLAN interfaces in step with the status directory. Either may be null:
// then there is nothing to keep. Owned by the counters manager. Activity thread.
class ZelVlanIntfSm : public Kiln::Entity {
 public:
   ZelVlanIntfSm(Kiln::Ptr<Vex::VexCommonSmData> vexCommonSmData,
                 Kiln::Ptr<const Interface::VlanIntfStatusDir> vlanIntfStatusDir);

   // Watches this directory from here on, and takes over all of it: VLAN interfaces that it lacks are removed.
   void vlanIntfStatusDirIs(Kiln::Ptr<const Interface::VlanIntfStatusDir> vlanIntfStatusDir);

   // The interface may have come or gone.
   void handleVlanIntf(const Pelt::IntfId& intf);
   // The same for every interface of the directory.
   void handleVlanIntf();

   KILN_ATTRIBUTE(bool, initialized, false)

 private:
   struct KilnVlanIntfStatusDir : Interface::IntfDir::Notifiee {
      explicit KilnVlanIntfStatusDir(ZelVlanIntfSm* owner) : Notifiee(owner), sm(owner) {}
      void onIntfStatus(const Pelt::IntfId& intf) override { sm->handleVlanIntf(intf); }
      ZelVlanIntfSm* sm;
   };

   void handleInitialized();

   Kiln::Ptr<Vex::VexCommonSmData> vexCommonSmData_;
   KilnVlanIntfStatusDir vlanIntfStatusDir_;
};

} // namespace ZelCounter

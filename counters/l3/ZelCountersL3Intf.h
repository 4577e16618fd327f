// Counters of L3 interfaces: VLAN interfaces and routed ports.
#pragma once

#include "ZelCountersTypes.h"
#include "vex/SharedTables.h"
#include "vex/VexCommonSmData.h"
#include "vex/VexL3Intf.h"
#include "zel/ChipStatus.h"
#include "zel/InterfaceDirs.h"
#include "zel/SystemStatus.h"
#include "zel/ZelDevProfile.h"
#include "zl/ZlPd.h"
#include "zl/ZlResourceInfo.h"

namespace ZelCounter {

// Owned by the counters manager. Activity thread.
class ZelCountersL3IntfSm : public Kiln::Entity {
 public:
   ZelCountersL3IntfSm(Kiln::Ptr<const VexL3Intf::Table> vexL3IntfTable,
                       Kiln::Ptr<const ZelSystem::SystemStatus> systemStatus,
                       Kiln::Ptr<Silo::Interface::AllNatCounterDir> natCounterDir);

   // A chip came or went.
   void addDevice(ZelId::ZelDevId devId, const ZelDriver::ZelDevProfile& devProfile,
                  const Kiln::Ptr<ZlPd::ZlPdIntf>& zlPdIntf,
                  const Kiln::Ptr<ZlResourceInfo::ZlResourceInfoIntf>& zlResourceInfoIntf,
                  const Kiln::Ptr<const ZelSlice::ChipStatus>& chipStatus);
   void deleteDevice(ZelId::ZelDevId devId);

   // An L3 interface's received and sent counts. False: it has none, and the pairs are left alone.
   bool getIntfCounter(const Pelt::IntfId& intf, packets_and_bytes* rx, packets_and_bytes* tx);

 private:
   Kiln::Ptr<const VexL3Intf::Table> vexL3IntfTable_;
   Kiln::Ptr<const ZelSystem::SystemStatus> systemStatus_;
   Kiln::Ptr<Silo::Interface::AllNatCounterDir> natCounterDir_;
};

// Keeps the forwarding layer's set of VLAN interfaces in step with the status directory. Activity thread.
class ZelVlanIntfSm : public Kiln::Entity {
 public:
   ZelVlanIntfSm(Kiln::Ptr<Vex::VexCommonSmData> vexCommonSmData,
                 Kiln::Ptr<const Interface::VlanIntfStatusDir> vlanIntfStatusDir);

 private:
   Kiln::Ptr<Vex::VexCommonSmData> vexCommonSmData_;
   Kiln::Ptr<const Interface::VlanIntfStatusDir> vlanIntfStatusDir_;
};

} // namespace ZelCounter

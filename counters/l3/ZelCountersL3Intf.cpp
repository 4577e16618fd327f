// The reactors over L3 interfaces and VLAN interfaces.
#include "l3/ZelCountersL3Intf.h"

#include "kiln/Trace.h"

namespace ZelCounter {

namespace {

Kiln::TraceHandle traceHandle("ZelCountersL3Intf");

} // namespace

ZelCountersL3IntfSm::ZelCountersL3IntfSm(Kiln::Ptr<const VexL3Intf::Table> vexL3IntfTable,
                                         Kiln::Ptr<const ZelSystem::SystemStatus> systemStatus,
                                         Kiln::Ptr<Silo::Interface::AllNatCounterDir> natCounterDir)
     : vexL3IntfTable_(std::move(vexL3IntfTable)), systemStatus_(std::move(systemStatus)),
       natCounterDir_(std::move(natCounterDir)) {}

void ZelCountersL3IntfSm::addDevice(ZelId::ZelDevId devId, const ZelDriver::ZelDevProfile&,
                                    const Kiln::Ptr<ZlPd::ZlPdIntf>&,
                                    const Kiln::Ptr<ZlResourceInfo::ZlResourceInfoIntf>&,
                                    const Kiln::Ptr<const ZelSlice::ChipStatus>&) {
   KILN_TRACE(9, "ZelCountersL3IntfSm::addDevice device: " << static_cast<unsigned>(devId));
}

void ZelCountersL3IntfSm::deleteDevice(ZelId::ZelDevId devId) {
   KILN_TRACE(9, "ZelCountersL3IntfSm::deleteDevice device: " << static_cast<unsigned>(devId));
}

bool ZelCountersL3IntfSm::getIntfCounter(const Pelt::IntfId&, packets_and_bytes*, packets_and_bytes*) {
   return false;
}

ZelVlanIntfSm::ZelVlanIntfSm(Kiln::Ptr<Vex::VexCommonSmData> vexCommonSmData,
                             Kiln::Ptr<const Interface::VlanIntfStatusDir> vlanIntfStatusDir)
     : vexCommonSmData_(std::move(vexCommonSmData)), vlanIntfStatusDir_(std::move(vlanIntfStatusDir)) {}

} // namespace ZelCounter

// Keeps the two directions of the port map consistent.
#include "zel/SystemStatus.h"

#include <stdexcept>

namespace ZelSystem {

void SystemStatus::portInfoIs(const Pelt::IntfId& intf, const PortRecord& record) {
   if (intf.empty() || record.devId >= ZelId::maxDevices || record.devicePort >= ZelId::PortIndex::invalid) {
      throw std::range_error(
           "port record without an interface, or with a device above 7 or a port above 455");
   }
   Pelt::IntfId& place = portToIntfId_[record.devId][record.devicePort];
   if (!place.empty() && !(place == intf)) {
      throw std::invalid_argument("port " + std::to_string(record.devicePort) + " of device " +
                                  std::to_string(record.devId) + " is already " + place.text());
   }
   if (const PortRecord* old = portInfo_.find(intf)) {
      portToIntfId_[old->devId][old->devicePort] = Pelt::IntfId();
   }
   // After the old place was freed: the two may be the same.
   place = intf;
   if (Kiln::mapAssign(portInfo_, intf, record)) {
      ++portInfoVersion_;
      notify(&Notifiee::onPortInfo, intf);
   }
}

void SystemStatus::portInfoDel(const Pelt::IntfId& intfToDelete) {
   const Pelt::IntfId intf = intfToDelete; // may be the key in the entry itself
   if (const PortRecord* old = portInfo_.find(intf)) {
      portToIntfId_[old->devId][old->devicePort] = Pelt::IntfId();
      portInfo_.erase(intf);
      ++portInfoVersion_;
      notify(&Notifiee::onPortInfo, intf);
   }
}

} // namespace ZelSystem

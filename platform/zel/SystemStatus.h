// The system status: what the platform tells the agent about its chips and ports.
#pragma once

#include "kiln/Accessors.h"
#include "kiln/Entity.h"
#include "zel/PdpClasses.h"
#include "zel/Pelt.h"
#include "zel/ZelId.h"
#include "zl/ZlPortLayout.h"

#include <array>

namespace ZelSystem {

// Where a port is. The default record stands for no port: no device, device port 456.
struct PortRecord {
   ZelId::ZelDevId devId = ZelId::noDevice;
   U16 devicePort = ZelId::PortIndex::invalid;

   U16 pipe() const noexcept { return ZlPort::pipeOf(devicePort); }
   // The port's index in its pipe, 0 to 67 for a real one.
   U8 pipePort() const noexcept { return static_cast<U8>(ZlPort::slotOf(devicePort)); }
   bool operator==(const PortRecord&) const noexcept = default;
};

// What a type of chip can do; every capability is off by default.
struct ChipCapabilities {
   bool vlanCounters = false;     // VLAN (L2-domain) count tables
   bool vxlan = false;            // VXLAN tunnel termination
   bool vrfNat = false;           // source NAT within a VRF
   bool qosPolicyCounter = false; // QoS-policy drop counting
   bool operator==(const ChipCapabilities&) const noexcept = default;
};

class SystemStatus : public Kiln::Entity {
 public:
   class Notifiee : public Kiln::NotifieeOf<SystemStatus> {
    public:
      using NotifieeOf::NotifieeOf;
      // The interface got a port, got another one, or lost its port.
      virtual void onPortInfo(const Pelt::IntfId&) {}
   };
   KILN_NOTIFIER

   // Ports by interface, in the order in which they were added. PortRecord() for an unknown interface.
   const Kiln::HashMap<Pelt::IntfId, PortRecord>& portInfo() const { return portInfo_; }
   const PortRecord& portInfo(const Pelt::IntfId& intf) const {
      return Kiln::valueOrDefault(portInfo_, intf);
   }
   // Rises with each change of the ports; 0 before the first.
   U64 portInfoVersion() const { return portInfoVersion_; }
   // Throws std::range_error for a device above 7 or a port above 455, and std::invalid_argument, naming the other
   // interface, for a device port that another one has.
   void portInfoIs(const Pelt::IntfId& intf, const PortRecord& record);
   void portInfoDel(const Pelt::IntfId& intf);

   // The interface of a chip's port, or the empty one.
   Pelt::IntfId portToIntfId(ZelId::ZelDevId devId, ZelId::PortIndex port) const {
      return devId < ZelId::maxDevices ? portToIntfId_[devId][port.value()] : Pelt::IntfId();
   }

   // By chip type name, as in the chip's device profile.
   KILN_HASH_MAP(Kiln::String, ChipCapabilities, chipCapabilities)

   // The names of the PDP classes; null while the QoS configuration has none.
   KILN_POINTER(const ZelQos::QosToZelPdpClassMapping, qosToZelPdpClassMapping)

 private:
   Kiln::HashMap<Pelt::IntfId, PortRecord> portInfo_;
   U64 portInfoVersion_ = 0;
   std::array<std::array<Pelt::IntfId, ZelId::PortIndex::invalid + 1>, ZelId::maxDevices> portToIntfId_;
};

} // namespace ZelSystem

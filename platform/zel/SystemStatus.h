// The system status: what the platform tells the agent of its chips and ports.
#pragma once

#include "kiln/Accessors.h"
#include "kiln/Entity.h"
#include "zel/PdpClasses.h"
#include "zel/Pelt.h"
#include "zel/ZelId.h"
#include "zl/ZlPortLayout.h"

#include <array>

namespace ZelSystem {

// Where a port sits. The default record is that of no port: no device, device port 456.
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
      // The port came, moved or went.
      virtual void onPortInfo(const Pelt::IntfId&) {}
   };
   KILN_NOTIFIER

   // Ports by interface, in the order in which they came. The record of an unknown interface is PortRecord().
   const Kiln::HashMap<Pelt::IntfId, PortRecord>& portInfo() const { return portInfo_; }
   const PortRecord& portInfo(const Pelt::IntfId& intf) const {
      return Kiln::valueOrDefault(portInfo_, intf);
   }
   // 0 without ports ever, and a larger number after each change.
   U64 portInfoVersion() const { return portInfoVersion_; }
   // A record whose device is above 7 or whose port is above 455 is a std::range_error; a device port that
   // another interface has is a std::invalid_argument that names it.
   void portInfoIs(const Pelt::IntfId& intf, const PortRecord& record);
   void portInfoDel(const Pelt::IntfId& intf);

   // The interface of a chip's port, or the empty one.
   Pelt::IntfId portToIntfId(ZelId::ZelDevId devId, ZelId::PortIndex port) const {
      return devId < ZelId::maxDevices ? portToIntfId_[devId][port.value()] : Pelt::IntfId();
   }

   // By the chip type's name, as the chip's device profile has it.
   KILN_HASH_MAP(Kiln::String, ChipCapabilities, chipCapabilities)

   // What the PDP classes are called; null while the QoS configuration names none.
   KILN_POINTER(const ZelQos::QosToZelPdpClassMapping, qosToZelPdpClassMapping)

 private:
   Kiln::HashMap<Pelt::IntfId, PortRecord> portInfo_;
   U64 portInfoVersion_ = 0;
   std::array<std::array<Pelt::IntfId, ZelId::PortIndex::invalid + 1>, ZelId::maxDevices> portToIntfId_;
};

} // namespace ZelSystem

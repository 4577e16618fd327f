// Soft chips, the L3 interface table, and a NAT table in a temporary folder, in simulated time.
#pragma once

#include "counters/chip/ZelCountersLog.h"
#include "counters/l3/RetrySm.h"
#include "counters/l3/ZelCountersL3Intf.h"
#include "silo/TableReader.h"
#include "softchip/SoftChip.h"
#include "tests/support/LoggedMessages.h"
#include "tests/support/SimulatedTime.h"
#include "tests/support/TemporaryFolder.h"
#include "zl/ZelSdk.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace ZelTest {

using Bridging::VlanId;
using Pelt::IntfId;
using ZelCounter::packets_and_bytes;

constexpr ZelSystem::ChipCapabilities plainChip{.vlanCounters = true};
constexpr ZelSystem::ChipCapabilities fullChip{.vlanCounters = true, .vxlan = true, .vrfNat = true};

// The soft chips' PD interface, which can be made to throw at the nth entry from now on, and to lie about deletions.
class ThrowingPd : public SoftChip::SoftPd {
 public:
   U32 entryAdd(U32 session, U32 device, U16 pipe, const Kiln::String& matchTable,
                std::span<const ZlPd::MatchField> match, U32* entry) override {
      if (throwAt != 0 && --throwAt == 0) {
         throw std::runtime_error("the chip is gone");
      }
      return SoftPd::entryAdd(session, device, pipe, matchTable, match, entry);
   }
   U32 entryDel(U32 session, U32 device, const Kiln::String& matchTable, U32 entry) override {
      ++deletions;
      if (deletionThrows) {
         throw std::runtime_error("the chip is gone");
      }
      const U32 status = SoftPd::entryDel(session, device, matchTable, entry);
      return deletionAnswer.value_or(status);
   }
   unsigned throwAt = 0;
   bool deletionThrows = false;
   std::optional<U32> deletionAnswer; // whatever has become of the entry
   unsigned deletions = 0;            // tried
};

class L3Rig : public testing::Test {
 protected:
   L3Rig() { l3Table->hasNotificationActiveIs(true); }

   // Adds a chip to the fleet, with a type name of its own, and its status.
   SoftChip::Chip& makeChip(U8 dev, const ZelSystem::ChipCapabilities& capabilities) {
      system->chipCapabilitiesIs(typeOf(dev), capabilities);
      chipStatus[dev] = Kiln::allocate<ZelSlice::ChipStatus>();
      chipStatus[dev]->hasNotificationActiveIs(true);
      return fleet.chipAdd(
           {.name = "Zel" + std::to_string(dev), .deviceId = dev, .vxlan = capabilities.vxlan});
   }
   static Kiln::String typeOf(U8 dev) { return "type" + std::to_string(dev); }
   SoftChip::Chip& chip(U8 dev) { return *fleet.chip(dev); }

   void openNatTable(std::size_t capacity = 64) {
      nat = nullptr;
      nat = Kiln::allocate<Silo::Interface::AllNatCounterDir>(
           Silo::Store::directory(folder.path()), "nat",
           Silo::TableOptions{.capacity = capacity,
                              .pollingInterval = 1,
                              .clockDomain = Silo::ClockDomain::simulatedTime(),
                              .onCorruption = [this](const Silo::Corruption& c) { corrupt.push_back(c.key); },
                              .isBegunAnew = false});
   }
   void makeSm() {
      if (!nat) {
         openNatTable();
      }
      sm = Kiln::allocate<ZelCounter::ZelCountersL3IntfSm>(l3Table, system, nat);
      sm->hasNotificationActiveIs(true);
   }
   void addDevice(U8 dev) { sm->addDevice(dev, {typeOf(dev)}, pd, chip(dev).program(), chipStatus[dev]); }

   static void advance(double seconds) { SimulatedTime::advance(seconds); }
   // Lets reads from here on see what the hardware has counted.
   void sync() {
      for (SoftChip::Chip* each : fleet.chips()) {
         for (const char* table : {"ingL2DomainCount", "egrL2DomainCount"}) {
            each->tables().sync(handleOf(*each, table), SoftChip::allPipes);
         }
      }
   }
   static U32 handleOf(SoftChip::Chip& of, const char* table) {
      return of.program()->zlTable(of.program()->zlTableIndex(table))->handle;
   }
   // How many entries the chip's hardware holds.
   U32 entries(U8 dev, const char* table) { return chip(dev).tables().matchTable(table)->size(); }
   U32 ingress(U8 dev = 0) { return entries(dev, "ingL2DomainCount"); }
   U32 egress(U8 dev = 0) { return entries(dev, "egrL2DomainCount"); }

   // The operator log's messages since the last call, such as "FULL 10".
   std::vector<std::string> messages() {
      std::vector<std::string> all;
      for (const std::string& message : logged.take()) {
         const auto at = message.find("VLAN ") + 5;
         const std::string vlan = message.substr(at, message.find(' ', at) - at);
         all.push_back((message.starts_with("ZEL_COUNTERS_COUNTER_RESOURCE_FULL ")     ? "FULL "
                        : message.starts_with("ZEL_COUNTERS_COUNTER_RESOURCE_NORMAL ") ? "NORMAL "
                                                                                       : "? ") +
                       vlan);
      }
      return all;
   }

   const SimulatedTime time;
   const TemporaryFolder folder;
   LoggedMessages logged;
   SoftChip::Fleet fleet;
   Kiln::Ptr<ZelSystem::SystemStatus> system = Kiln::allocate<ZelSystem::SystemStatus>();
   Kiln::Ptr<ZelSlice::ChipStatus> chipStatus[8];
   Kiln::Ptr<ThrowingPd> pd = Kiln::allocate<ThrowingPd>();
   Kiln::Ptr<VexL3Intf::Table> l3Table = Kiln::allocate<VexL3Intf::Table>("l3");
   std::vector<std::string> corrupt; // keys of the records reported as corrupt
   Kiln::Ptr<Silo::Interface::AllNatCounterDir> nat;
   Kiln::Ptr<ZelCounter::ZelCountersL3IntfSm> sm;
};

// "packets/bytes"
inline std::string text(const packets_and_bytes& counter) {
   return std::to_string(counter.packets) + "/" + std::to_string(counter.bytes);
}

} // namespace ZelTest

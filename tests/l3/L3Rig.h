// Soft chips, the L3 interface table and a NAT table in a folder of its own, on simulated time.
#pragma once

#include "counters/chip/ZelCountersLog.h"
#include "counters/l3/RetrySm.h"
#include "counters/l3/ZelCountersL3Intf.h"
#include "kiln/ActivityManager.h"
#include "silo/TableReader.h"
#include "softchip/SoftChip.h"
#include "zl/ZelSdk.h"

#include <cstdlib>
#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace Test {

using Bridging::VlanId;
using Pelt::IntfId;
using ZelCounter::packets_and_bytes;

constexpr ZelSystem::ChipCapabilities plainChip{.vlanCounters = true};
constexpr ZelSystem::ChipCapabilities fullChip{.vlanCounters = true, .vxlan = true, .vrfNat = true};

// The PD interface of the soft chips, which can be made to throw at the nth entry from now.
class ThrowingPd : public SoftChip::SoftPd {
 public:
   U32 entryAdd(U32 session, U32 device, U16 pipe, const Kiln::String& matchTable,
                std::span<const ZlPd::MatchField> match, U32* entry) override {
      if (throwAt != 0 && --throwAt == 0) {
         throw std::runtime_error("the chip is gone");
      }
      return SoftPd::entryAdd(session, device, pipe, matchTable, match, entry);
   }
   unsigned throwAt = 0;
};

class L3Rig : public testing::Test {
 protected:
   L3Rig() {
      Kiln::System::timeSourceIs(time);
      Kiln::ActivityManager::instanceDel();
      fleet = std::make_unique<SoftChip::Fleet>();
      l3Table->hasNotificationActiveIs(true);
      Kiln::OperatorLog::instance().newEntries();
      char name[] = "/tmp/l3testXXXXXX";
      folder = mkdtemp(name);
   }
   ~L3Rig() override {
      sm = nullptr;
      nat = nullptr;
      fleet = nullptr;
      Kiln::ActivityManager::instanceDel();
      Kiln::System::timeSourceIs(nullptr);
      std::filesystem::remove_all(folder);
   }

   // A chip of the fleet under a type of its own, and its status.
   SoftChip::Chip& makeChip(U8 dev, const ZelSystem::ChipCapabilities& capabilities) {
      system->chipCapabilitiesIs(typeOf(dev), capabilities);
      chipStatus[dev] = Kiln::allocate<ZelSlice::ChipStatus>();
      chipStatus[dev]->hasNotificationActiveIs(true);
      return fleet->chipAdd({.name = "Zel" + std::to_string(dev), .deviceId = dev});
   }
   static Kiln::String typeOf(U8 dev) { return "type" + std::to_string(dev); }
   SoftChip::Chip& chip(U8 dev) { return *fleet->chip(dev); }

   void openNatTable(std::size_t capacity = 64) {
      nat = nullptr;
      nat = Kiln::allocate<Silo::Interface::AllNatCounterDir>(
           Silo::Store::directory(folder), "nat",
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

   static void advance(double seconds) { Kiln::ActivityManager::instance()->advance(seconds); }
   // What the hardware counts is seen by reads from here on.
   void sync() {
      for (SoftChip::Chip* each : fleet->chips()) {
         for (const char* table : {"ingL2DomainCount", "egrL2DomainCount"}) {
            each->tables().sync(handleOf(*each, table), SoftChip::allPipes);
         }
      }
   }
   static U32 handleOf(SoftChip::Chip& of, const char* table) {
      return of.program()->zlTable(of.program()->zlTableIndex(table))->handle;
   }
   // How many entries a chip's hardware holds.
   U32 entries(U8 dev, const char* table) { return chip(dev).tables().matchTable(table)->size(); }
   U32 ingress(U8 dev = 0) { return entries(dev, "ingL2DomainCount"); }
   U32 egress(U8 dev = 0) { return entries(dev, "egrL2DomainCount"); }

   // The operator's messages since the last call: "FULL 10".
   static std::vector<std::string> messages() {
      std::vector<std::string> all;
      for (const auto& entry : Kiln::OperatorLog::instance().newEntries()) {
         const auto at = entry.text.find("VLAN ") + 5;
         const std::string vlan = entry.text.substr(at, entry.text.find(' ', at) - at);
         all.push_back((entry.message == &ZelCounter::ZEL_COUNTERS_COUNTER_RESOURCE_FULL     ? "FULL "
                        : entry.message == &ZelCounter::ZEL_COUNTERS_COUNTER_RESOURCE_NORMAL ? "NORMAL "
                                                                                             : "? ") +
                       vlan);
      }
      return all;
   }

   Kiln::Ptr<Kiln::SimulatedTime> time = Kiln::allocate<Kiln::SimulatedTime>();
   std::unique_ptr<SoftChip::Fleet> fleet;
   Kiln::Ptr<ZelSystem::SystemStatus> system = Kiln::allocate<ZelSystem::SystemStatus>();
   Kiln::Ptr<ZelSlice::ChipStatus> chipStatus[8];
   Kiln::Ptr<ThrowingPd> pd = Kiln::allocate<ThrowingPd>();
   Kiln::Ptr<VexL3Intf::Table> l3Table = Kiln::allocate<VexL3Intf::Table>("l3");
   Kiln::Ptr<Silo::Interface::AllNatCounterDir> nat;
   Kiln::Ptr<ZelCounter::ZelCountersL3IntfSm> sm;
   std::vector<std::string> corrupt; // keys of records that were found so
   std::string folder;
};

// "packets/bytes"
inline std::string text(const packets_and_bytes& counter) {
   return std::to_string(counter.packets) + "/" + std::to_string(counter.bytes);
}

} // namespace Test

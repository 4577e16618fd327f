// A fleet on simulated time, for tests.
#pragma once

#include "kiln/ActivityManager.h"
#include "kiln/Time.h"
#include "sdk/bf_port.h"
#include "softchip/SoftChip.h"

#include <gtest/gtest.h>

namespace SoftChip {

class Rig : public testing::Test {
 protected:
   Rig() {
      Kiln::System::timeSourceIs(time);
      Kiln::ActivityManager::instanceDel();
      fleet = std::make_unique<Fleet>();
   }
   ~Rig() override {
      fleet = nullptr;
      Kiln::ActivityManager::instanceDel();
      Kiln::System::timeSourceIs(nullptr);
   }

   static void advance(double seconds) { Kiln::ActivityManager::instance()->advance(seconds); }

   Chip& addChip(U8 deviceId = 0, unsigned pipes = 2) {
      return fleet->chipAdd({.name = "Zel" + std::to_string(deviceId), .deviceId = deviceId, .pipes = pipes});
   }

   // A good 64-octet frame between two stations.
   static FrameInfo frame(U64 destinationMac, U64 sourceMac) {
      FrameInfo made;
      made.wireLength = 64;
      made.destinationMac = destinationMac;
      made.sourceMac = sourceMac;
      made.destination = destinationKind(destinationMac);
      return made;
   }

   Kiln::Ptr<Kiln::SimulatedTime> time = Kiln::allocate<Kiln::SimulatedTime>();
   std::unique_ptr<Fleet> fleet;
};

} // namespace SoftChip

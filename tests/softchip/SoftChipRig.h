// A fleet of soft chips in simulated time.
#pragma once

#include "sdk/bf_port.h"
#include "softchip/SoftChip.h"
#include "tests/support/SimulatedTime.h"

#include <gtest/gtest.h>
#include <memory>

namespace ZelTest {

class SoftChipRig : public testing::Test {
 protected:
   static void advance(double seconds) { SimulatedTime::advance(seconds); }

   SoftChip::Chip& addChip(U8 deviceId = 0, unsigned pipes = 2) {
      return fleet->chipAdd({.name = "Zel" + std::to_string(deviceId), .deviceId = deviceId, .pipes = pipes});
   }

   // A good 64-octet frame between two stations.
   static SoftChip::FrameInfo frame(U64 destinationMac, U64 sourceMac) {
      SoftChip::FrameInfo made;
      made.wireLength = 64;
      made.destinationMac = destinationMac;
      made.sourceMac = sourceMac;
      made.destination = SoftChip::destinationKind(destinationMac);
      return made;
   }

   const SimulatedTime time;
   std::unique_ptr<SoftChip::Fleet> fleet = std::make_unique<SoftChip::Fleet>();
};

} // namespace ZelTest

// Polling of ports while their chip is deleted. It takes the stub SDK, which lets the test choose the moment.
#include "tests/support/StubSdkRig.h"

namespace {

using namespace ZelTest;
using PortPolling = StubSdkRig;

TEST_F(PortPolling, AChipThatGoesAwayInTheMiddleOfAPassAsksForNothingMore) {
   addPort("Ethernet1", 0);
   addPort("Ethernet2", 1);
   const Kiln::Ptr<ZelCounter::ZelCounters> chip(&addChip(0, 0, makeCatalogue(0)));
   int asked = 0;
   StubSdk::sdk().onMacStatsGet = [&] {
      if (++asked == 1) {
         deleteChip(0);
      }
   };
   const auto lock = Kiln::ActivityLockAnchor::lock();
   chip->requestHwCountersPolling();
   EXPECT_EQ(asked, 1); // a later request's completion would bring the address of a freed object
}

} // namespace

// The MAC show and clear commands, to the letter.
#include "tests/support/CountersRig.h"
#include "tests/support/Output.h"

#include <gtest/gtest.h>

namespace {

using namespace ZelTest;

std::string line(unsigned index, const char* value) {
   const char* name = nullptr;
   EXPECT_EQ(bf_port_rmon_counter_to_str(static_cast<int>(index), &name), 0);
   std::string text = name;
   text.resize(40, ' ');
   return text + "    " + std::string(15 - std::string(value).size(), ' ') + value + "\n";
}

class MacCommands : public testing::Test {
 protected:
   MacCommands() {
      rig.makeManager();
      rig.addChip(0, "Zel0");
      port = rig.addPort("Ethernet1", 0, 7);
      rig.chip(0).rmonIs(7, 0, 1000);
      rig.chip(0).rmonIs(7, 4, 2000);
      rig.advance(2.0);
   }

   std::string show(bool nonZeroOnly = true) {
      return printed([&](U32 fd) { rig.counters(0)->showMacCounters(fd, port, nonZeroOnly); });
   }
   void clear() {
      EXPECT_EQ(printed([&](U32 fd) { rig.counters(0)->clearMacCounters(fd, port); }), "");
   }

   CountersRig rig;
   Pelt::IntfId port;
};

TEST_F(MacCommands, AfterAClearShowOnlyWhatMovedSince) {
   clear();
   EXPECT_EQ(show(), "");
   rig.chip(0).rmonIs(7, 4, 2005);
   rig.advance(2.0);
   EXPECT_EQ(show(), "Intf Ethernet1 (7):\n" + line(4, "5") + "\n");
   EXPECT_EQ(rig.chip(0).rmon(7, 4), 2005U); // the hardware is not cleared
   rig.chip(0).portAdd(8);
   rig.chip(0).rmonIs(8, 0, 1500);
   rig.chip(0).rmonIs(8, 4, 3000);
   rig.status->portInfoIs(port, {0, 8});
   rig.advance(2.0);
   EXPECT_EQ(show(), "Intf Ethernet1 (8):\n" + line(0, "1500") + line(4, "3000") + "\n")
        << "nothing of its former port";
}

TEST_F(MacCommands, AValueAboveTheSignedRangePrintsNegative) {
   rig.chip(0).rmonIs(7, 0, ~U64{0});
   rig.chip(0).rmonIs(7, 4, 0);
   rig.advance(2.0);
   EXPECT_EQ(show(), "Intf Ethernet1 (7):\n" + line(0, "-1") + "\n");
}

TEST_F(MacCommands, AChipThatIsNotReadySaysSo) {
   rig.counters(0)->initializedIs(false);
   EXPECT_EQ(show(), "Agent not initialized yet");
   EXPECT_EQ(printed([&](U32 fd) { rig.counters(0)->showAllMacCounters(fd, false); }),
             "Agent not initialized yet");
   EXPECT_EQ(printed([&](U32 fd) { rig.counters(0)->clearMacCounters(fd, port); }),
             "Agent not initialized yet");
}

TEST_F(MacCommands, AClosedPipeEndsThePrintAndNothingElse) {
   printToNobody([&](U32 fd) { rig.counters(0)->showMacCounters(fd, port, false); });
   EXPECT_EQ(show(), "Intf Ethernet1 (7):\n" + line(0, "1000") + line(4, "2000") + "\n");
}

} // namespace

// PDP class counters, from the SDK's table to the operator's view.
#include "tests/support/StubSdkRig.h"

#include <functional>

namespace {

using namespace ZelTest;
using ZelCounter::ZelCounters;

const std::string rule = ruler(61);
const std::string header = "                      PDP Class Counters                     \n" + rule +
                           "     Interface                    Class            Packets   \n" + rule;
const std::string closing = ruler(58);
const std::string notFetched = "PDP counters not fetched yet\n";

class PdpCounters : public StubSdkRig {
 protected:
   PdpCounters() {
      StubSdk::sdk().inlineDefault = true;
      refuseQueueSyncs();
      auto mapping = Kiln::allocate<ZelQos::QosToZelPdpClassMapping>();
      mapping->zelPdpClassIs("lacp", ZelQos::PdpClassId(5));
      mapping->zelPdpClassIs("arp", ZelQos::PdpClassId(31));
      systemStatus->qosToZelPdpClassMappingIs(mapping);
   }

   ZelCounters& addPdpChip(U16 highestPipe = 0) {
      auto& chip = addChip(0, highestPipe, makeCatalogue(0));
      advance(2.0);
      return chip;
   }

   Pelt::IntfId addPort(const std::string& name, U16 devicePort, int dev = 0) {
      const Pelt::IntfId intf = StubSdkRig::addPort(name, devicePort, dev);
      chipStatus.at(0)->portToIntfIdIs(devicePort, intf);
      return intf;
   }

   // The index counts within the pipe.
   static void countIs(U16 pipe, U32 slot, U32 pdpClass, U64 packets) {
      StubSdk::sdk().table(0, pdpHandle).values[{pipe, slot * 32 + pdpClass}] = {packets, 0};
   }

   static std::string showAll(ZelCounters& chip, bool nonZeroOnly) {
      return printed([&](U32 fd) { chip.showAllPdpIntfCounters(fd, nonZeroOnly); });
   }
};

TEST_F(PdpCounters, EveryInterfaceIsShownInItsOrder) {
   auto& chip = addPdpChip();
   addPort("Ethernet10", 2);
   addPort("Ethernet9", 72);
   countIs(0, 2, 5, 7);
   countIs(0, 72, 31, ~U64{0});
   countIs(0, 72, 0, 3);
   countIs(0, 1, 5, 99); // an empty slot
   chip.fetchPdpCounters();
   EXPECT_EQ(showAll(chip, false), header +
                                        "     Ethernet9                     lacp                  0\n"
                                        "     Ethernet9                      arp 18446744073709551615\n"
                                        "     Ethernet9                  default                  3\n"
                                        "    Ethernet10                     lacp                  7\n"
                                        "    Ethernet10                      arp                  0\n"
                                        "    Ethernet10                  default                  0\n" +
                                        closing);
   EXPECT_EQ(showAll(chip, true), header +
                                       "     Ethernet9                      arp 18446744073709551615\n"
                                       "     Ethernet9                  default                  3\n"
                                       "    Ethernet10                     lacp                  7\n" +
                                       closing);
}

TEST_F(PdpCounters, OneInterfaceIsShownWithItsHeaderAndFooter) {
   auto& chip = addPdpChip();
   const Pelt::IntfId busy = addPort("Ethernet1", 0);
   const Pelt::IntfId idle = addPort("Ethernet2", 1);
   countIs(0, 0, 5, 7);
   chip.fetchPdpCounters();
   const auto show = [&](const Pelt::IntfId& intf, bool headerDisplayed, bool nonZeroOnly, bool footer) {
      bool displayed = false;
      std::string text = printed([&](U32 fd) {
         displayed = chip.showPdpIntfCounters(fd, intf, headerDisplayed, nonZeroOnly, footer);
      });
      return text + (displayed ? "displayed" : "owed");
   };
   const std::string line = "     Ethernet1                     lacp                  7\n";
   EXPECT_EQ(show(busy, false, true, true), header + line + rule + "displayed");
   EXPECT_EQ(show(busy, true, true, false), line + "displayed");
   EXPECT_EQ(show(idle, false, true, true), "owed") << "not even the header";
   EXPECT_EQ(show(idle, false, false, true),
             header +
                  "     Ethernet2                     lacp                  0\n"
                  "     Ethernet2                      arp                  0\n"
                  "     Ethernet2                  default                  0\n" +
                  rule + "displayed");
}

TEST_F(PdpCounters, ALineBringsItsHeaderOnlyWhereZerosAreLeftOut) {
   auto& chip = addPdpChip();
   const auto line = [&](U64 count, bool headerDisplayed, bool nonZeroOnly) {
      bool displayed = false;
      const std::string text = printed([&](U32 fd) {
         displayed =
              chip.printPdpClassCountLine(fd, "Ethernet1", "lacp", count, headerDisplayed, nonZeroOnly);
      });
      return text + (displayed ? "displayed" : "owed");
   };
   const std::string seven = "     Ethernet1                     lacp                  7\n";
   EXPECT_EQ(printed([&](U32 fd) { chip.printPdpCountersHeader(fd); }), header);
   EXPECT_EQ(line(7, false, true), header + seven + "displayed");
   EXPECT_EQ(line(7, true, true), seven + "displayed");
   EXPECT_EQ(line(0, false, true), "owed");
   EXPECT_EQ(line(0, true, true), "displayed");
   EXPECT_EQ(line(7, false, false), seven + "owed") << "its caller has printed the header";
}

TEST_F(PdpCounters, DefaultLineReadsTheIdThatTheMappingGives) {
   auto mapping = Kiln::allocate<ZelQos::QosToZelPdpClassMapping>();
   mapping->zelPdpClassIs("default", ZelQos::PdpClassId(9));
   systemStatus->qosToZelPdpClassMappingIs(mapping);
   auto& chip = addPdpChip();
   addPort("Ethernet1", 0);
   countIs(0, 0, 9, 4);
   chip.fetchPdpCounters();
   const std::string line = "     Ethernet1                  default                  4\n";
   EXPECT_EQ(showAll(chip, true), header + line + line + closing) << "as an entry, and as the last line";
   systemStatus->qosToZelPdpClassMappingDel();
   EXPECT_EQ(showAll(chip, false),
             header + "     Ethernet1                  default                  0\n" + closing);
}

TEST_F(PdpCounters, ClearShowsZeroUntilAFetchBringsMoreAndLeavesTheHardware) {
   auto& chip = addPdpChip();
   addPort("Ethernet1", 0);
   countIs(0, 0, 5, 7);
   chip.fetchPdpCounters();
   chip.clearAllPdpIntfCounters(0);
   EXPECT_EQ(showAll(chip, true), closing);
   countIs(0, 0, 5, 9);
   chip.fetchPdpCounters();
   EXPECT_EQ(showAll(chip, true),
             header + "     Ethernet1                     lacp                  2\n" + closing);
   countIs(0, 0, 5, 4); // the hardware began anew
   chip.fetchPdpCounters();
   EXPECT_EQ(showAll(chip, true),
             header + "     Ethernet1                     lacp                  6\n" + closing)
        << "what was counted since the clear, before and after";
}

TEST_F(PdpCounters, InterfaceThatMovedBeginsAnew) {
   auto& chip = addPdpChip();
   addPort("Ethernet1", 0);
   countIs(0, 0, 5, 7);
   chip.fetchPdpCounters();
   chip.clearAllPdpIntfCounters(0);
   addPort("Ethernet1", 1);
   countIs(0, 1, 5, 3);
   for (int fetch = 0; fetch < 2; ++fetch) {
      chip.fetchPdpCounters();
      EXPECT_EQ(showAll(chip, true), closing) << "listed at both slots";
   }
   chipStatus.at(0)->portToIntfIdDel(0);
   const std::string shown =
        header + "     Ethernet1                     lacp                  3\n" + closing;
   for (int fetch = 0; fetch < 2; ++fetch) {
      chip.fetchPdpCounters();
      EXPECT_EQ(showAll(chip, true), shown);
   }
   chip.clearAllPdpIntfCounters(0);
   chip.fetchPdpCounters();
   EXPECT_EQ(showAll(chip, true), closing);
}

TEST_F(PdpCounters, NothingIsShownUntilAFetchSucceeds) {
   StubSdk::sdk().inlineDefault = false;
   auto& chip = addPdpChip();
   const Pelt::IntfId intf = addPort("Ethernet1", 0);
   chip.fetchPdpCounters();
   EXPECT_EQ(showAll(chip, false), notFetched) << "no sync pass has landed";
   StubSdk::sdk().deliverAll();
   auto& statuses = StubSdk::sdk().statuses;
   const std::tuple<std::string, U32, U16> failures[] = {
        {"index 2000", pdpHandle, 0},
        {"counterReadIndirectStart", pdpHandle, 0},
        {"counterReadIndirectEnd", 0, 0},
   };
   for (const auto& failure : failures) {
      SCOPED_TRACE(std::get<0>(failure));
      chip.fetchPdpCounters();
      EXPECT_TRUE(chip.pdpCountersFetched());
      statuses[failure] = 5;
      chip.fetchPdpCounters();
      EXPECT_EQ(showAll(chip, false), notFetched);
      EXPECT_EQ(printed([&](U32 fd) { chip.showPdpIntfCounters(fd, intf, false, false, true); }), notFetched);
      statuses.erase(failure);
   }
   chip.fetchPdpCounters();
   chip.initializedCounterIs(0, false);
   chip.fetchPdpCounters();
   EXPECT_EQ(showAll(chip, false), notFetched) << "the table isn't initialized";
}

TEST_F(PdpCounters, InterfaceWithoutASnapshotIsSkipped) {
   auto& chip = addPdpChip();
   addPort("Ethernet1", 73);   // a port without a place in the table
   addPort("Ethernet3", 1, 4); // a port of another device
   chip.fetchPdpCounters();
   addPort("Ethernet2", 0); // it came after the fetch
   EXPECT_EQ(showAll(chip, false), closing);
   EXPECT_DEATH(chip.showPdpIntfCounters(1, Pelt::IntfId("Ethernet2"), true, false, false), "\"last\"");
}

TEST_F(PdpCounters, TableOfAnotherShapeStopsTheProcess) {
   const struct {
      const char* assertion;
      std::function<void(StubSdk::Table& table)> change;
   } shapes[] = {
        {"\"!info->direct\"", [](StubSdk::Table& t) { t.info.direct = true; }},
        {"\"info->packets\"", [](StubSdk::Table& t) { t.info.packets = false; }},
        {"\"info->size >= pdpCounterMaxEntry \\+ 1\"", [](StubSdk::Table& t) { t.info.size = 2335; }},
   };
   for (const auto& shape : shapes) {
      auto catalogue = Kiln::allocate<StubSdk::Catalogue>();
      StubSdk::Table table = makeTable("pdpClassCount", pdpHandle, 2336, false, packetsOnly, false);
      shape.change(table);
      catalogue->add(0, table);
      auto& chip = addChip(0, 0, catalogue);
      advance(2.0);
      EXPECT_DEATH(chip.fetchPdpCounters(), shape.assertion);
   }
   auto& chip = addPdpChip();
   chip.perPipeCounterDel(0);
   EXPECT_DEATH(chip.fetchPdpCounters(), "\"perPipeCounter\\( pdpCounterTableId \\)\"");
}

} // namespace

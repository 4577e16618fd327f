// The pipeline, drop, MAU, deparser and traffic-manager views over the SDK's answers.
#include "counters/drops/CliPortDropData.h"
#include "tests/support/StubSdkRig.h"

#include <functional>

namespace {

using namespace ZelTest;
using testing::HasSubstr;
using ZelCounter::ZelCounters;

constexpr U32 ingressHandle = 0xA1;
constexpr U32 egressHandle = 0xA2;
constexpr U32 finalHandle = 0xA3;
constexpr U32 dropSize = ZlDrop::tableSize;

class DropViews : public StubSdkRig {
 protected:
   DropViews() {
      StubSdk::sdk().inlineDefault = true;
      refuseQueueSyncs();
   }

   ZelCounters& addDropChip(int dev = 0, U16 highestPipe = 1) {
      auto catalogue = makeCatalogue(dev);
      catalogue->add(dev,
                     makeTable("ingressPortDropCount", ingressHandle, dropSize, false, packetsOnly, false));
      catalogue->add(dev,
                     makeTable("egressPortDropCount", egressHandle, dropSize, false, packetsOnly, false));
      catalogue->add(dev,
                     makeTable("finalDropControlCount", finalHandle, dropSize, false, packetsOnly, false));
      auto& chip = addChip(dev, highestPipe, catalogue);
      advance(2.0);
      return chip;
   }

   // Sets a count in the SDK's software copy.
   static void dropsAre(U32 handle, U16 devicePort, U32 reason, U64 packets, int dev = 0) {
      StubSdk::sdk()
           .table(dev, handle)
           .values[{static_cast<U16>(devicePort / 128), devicePort % 128 * 16U + reason}] = {packets, 0};
   }

   // Without when the counts were cleared, which titles end with.
   template <class Print>
   static std::string printed(Print print) {
      std::string text = ZelTest::printed(print);
      for (const std::string_view since : {", never cleared", ", since the clear "}) {
         for (auto at = text.find(since); at != std::string::npos; at = text.find(since)) {
            text.erase(at, text.find('\n', at) - at);
         }
      }
      return text;
   }
   static std::string drops(ZelCounters& chip, bool nonZeroOnly = true) {
      const std::string both = printed([&](U32 fd) { chip.showAllDropCounters(fd, nonZeroOnly); });
      return both.substr(std::min(both.find("Drops by port"), both.size()));
   }
   static std::string tmText(ZelCounters& chip) {
      return printed([&](U32 fd) { chip.tm().showAll(ZelCounter::ShowTarget(fd), true); });
   }
   static std::string pipeline(ZelCounters& chip) {
      return printed([&](U32 fd) { chip.showAllPipelineCounters(fd, true); });
   }
};

const std::string dropRule = ruler(71);
const std::string dropHeader = "Drops by port, chip Zel0\n" + dropRule +
                               "  Interface         Point    Reason                             Packets\n" +
                               dropRule;
const std::string noDrops = dropHeader + "  none\n" + dropRule + "\n";

TEST_F(DropViews, DropsAreListedOnceAndTheWorstFirst) {
   auto& chip = addDropChip();
   addPort("Ethernet1", 128);
   addPort("Ethernet20", 67);
   addPort("Ethernet3", 0, 1); // a port of another chip
   dropsAre(finalHandle, 128, 3, 4);
   dropsAre(ingressHandle, 128, 0, ~U64{0});
   dropsAre(egressHandle, 67, 0, 7);
   dropsAre(egressHandle, 67, 15, 1); // a number that is not a reason
   dropsAre(egressHandle, 66, 0, 99); // a slot without a port
   addPort("Ethernet4", 1);
   dropsAre(egressHandle, 1, 0, 7);
   const std::string worst = "  Ethernet1         ingress  bad FCS                   18446744073709551615\n";
   EXPECT_EQ(drops(chip), dropHeader + worst +
                               "  Ethernet20        egress   queue congested                          7\n"
                               "  Ethernet20        egress   reason 15                                1\n"
                               "  Ethernet4         egress   queue congested                          7\n" +
                               dropRule + "\n");
   const std::string all = printed([&](U32 fd) {
      chip.portDrops().show(ZelCounter::ShowTarget(fd),
                            {.nonZeroOnly = true, .isFinalShown = true, .top = 1});
   });
   EXPECT_THAT(all,
               testing::AllOf(
                    testing::StartsWith("Drops by reason"),
                    testing::HasSubstr("\n  ingress  bad FCS                   18446744073709551615\n="),
                    testing::EndsWith(
                         worst + "  Ethernet1         final    lost at egress                           4\n" +
                         dropRule + "\n")));
   dropsAre(finalHandle, 1, 3, 7); // the same frames
   const std::string two = printed([&](U32 fd) {
      chip.portDrops().show(ZelCounter::ShowTarget(fd),
                            {.nonZeroOnly = true, .isFinalShown = true, .top = 2});
   });
   EXPECT_THAT(two, testing::AllOf(HasSubstr("Ethernet20"), testing::Not(HasSubstr("Ethernet4"))));
   const std::string reasons = printed([&](U32 fd) { chip.showAllDropCounters(fd, true); });
   EXPECT_THAT(reasons, testing::HasSubstr("\n  egress   queue congested                         14\n"));
   const std::string one = printed([&](U32 fd) {
      chip.portDrops().show(ZelCounter::ShowTarget(fd), {.intf = Pelt::IntfId("Ethernet20")});
   });
   EXPECT_EQ(std::count(one.begin(), one.end(), '\n'), 4 + 13 + 1 + 2) << one;
   const std::string other = printed([&](U32 fd) {
      chip.portDrops().show(ZelCounter::ShowTarget(fd),
                            {.intf = Pelt::IntfId("Ethernet3"), .nonZeroOnly = true});
   });
   EXPECT_EQ(other,
             noDrops.substr(0, noDrops.size() - 1) + "Interface Ethernet3 has no port on chip Zel0\n\n");
}

TEST_F(DropViews, AClearStandsAndEndsWithItsInterfaceOnly) {
   auto& chip = addDropChip();
   const Pelt::IntfId intf = addPort("Ethernet1", 5);
   dropsAre(ingressHandle, 5, 2, 10);
   addPort("Ethernet2", 128 + 5); // in another pipe, whose clear stands when the table of this one is cleared
   dropsAre(ingressHandle, 128 + 5, 2, 10);
   dropsAre(egressHandle, 5, 1, 3);
   printed([&](U32 fd) { chip.portDrops().clearAll(ZelCounter::ShowTarget(fd)); });
   EXPECT_EQ(drops(chip), noDrops);
   EXPECT_EQ(StubSdk::sdk().table(0, ingressHandle).values.at(std::pair(U16{0}, 82U)).packets, 10U)
        << "the hardware keeps its counts";
   dropsAre(ingressHandle, 5, 2, 12);
   EXPECT_THAT(drops(chip), HasSubstr("VLAN not allowed                         2\n"));

   systemStatus->portInfoDel(intf);
   addPort("Ethernet9", 5);
   EXPECT_EQ(drops(chip), noDrops) << "those were another interface's";
   dropsAre(ingressHandle, 5, 2, 14);
   EXPECT_THAT(drops(chip),
               HasSubstr("Ethernet9         ingress  VLAN not allowed                         2\n"));

   dropsAre(ingressHandle, 5, 2, 9); // less than at the clear: the table began anew
   EXPECT_THAT(drops(chip), HasSubstr("VLAN not allowed                        11\n"));
   EXPECT_THAT(drops(chip), testing::Not(HasSubstr("egress"))) << "which is another table";

   dropsAre(ingressHandle, 5, 2, 10);
   printed([&](U32 fd) { chip.clearTableCounters(fd, 2, 0); });
   EXPECT_EQ(drops(chip), noDrops);
   dropsAre(ingressHandle, 5, 2, 15); // more than was read before the clear
   EXPECT_THAT(drops(chip), HasSubstr("VLAN not allowed                        15\n"));

   StubSdk::sdk().statuses[{"counterWrite", ingressHandle, 0}] = 17;
   printed([&](U32 fd) { chip.clearTableCounters(fd, 2, 0); });
   EXPECT_THAT(drops(chip), HasSubstr("VLAN not allowed                        15\n"))
        << "nothing was cleared";

   printed([&](U32 fd) { chip.portDrops().clearAll(ZelCounter::ShowTarget(fd)); });
   auto& again = addDropChip(); // in its place, the hardware kept
   dropsAre(ingressHandle, 5, 2, 16);
   EXPECT_THAT(drops(again), HasSubstr("VLAN not allowed                         1\n"));
}

TEST_F(DropViews, FailedReadsAreNotedBelowTheRows) {
   auto& chip = addDropChip();
   addPort("Ethernet1", 0);
   addPort("Ethernet2", 128);
   dropsAre(ingressHandle, 0, 0, 5);
   drops(chip);
   dropsAre(ingressHandle, 0, 0, 6);
   StubSdk::sdk().statuses[{"counterReadIndirectStart", ingressHandle, 0}] = 14;
   const std::string text = drops(chip);
   EXPECT_THAT(text, HasSubstr("bad FCS                                  5\n"));
   EXPECT_THAT(text, HasSubstr(dropRule + "Error 14 (IO error) requesting counters for pipe 0, "
                                          "ingressPortDropCount: shown as last read\n\n"));
   const std::string document = printed([&](U32 fd) {
      const auto out = ZelCounter::answerTo(fd, true);
      out->chipBegin("Zel0", false);
      chip.portDrops().showAll(*out, true);
      out->chipEnd();
      out->documentEnd();
   });
   EXPECT_THAT(document, HasSubstr("\"status\":\"IO error\""));
   chip.firstPollingCompleteIs(false);
   EXPECT_THAT(drops(chip), HasSubstr("Counter table egressPortDropCount not initialized yet\n"));
   chip.firstPollingCompleteIs(true);
   chip.perPipeCounterIs(4, false);
   EXPECT_THAT(drops(chip), HasSubstr("Counter table finalDropControlCount does not tell pipes apart\n"));

   auto& without = addChip(1, 0, makeCatalogue(1));
   EXPECT_THAT(drops(without), HasSubstr("Chip Zel1 has no counter table egressPortDropCount\n"));
}

TEST_F(DropViews, APipelineCountThatFellAfterAClearCountsWhole) {
   auto& chip = addDropChip();
   StubSdk::sdk().path[{0, BF_PIPE_PATH_PARSER}] = {10, 9, 1};
   printed([&](U32 fd) { chip.clearAllPipelineCounters(fd); });
   StubSdk::sdk().path[{0, BF_PIPE_PATH_PARSER}] = {12, 11, 1};
   EXPECT_THAT(pipeline(chip),
               HasSubstr("parser                           2                 2                 0"));
   StubSdk::sdk().path[{0, BF_PIPE_PATH_PARSER}] = {4, 4, 0}; // the chip was reset
   EXPECT_THAT(pipeline(chip),
               HasSubstr("parser                           6                 6                 0"));
}

TEST_F(DropViews, MauDropsAreShownAndClearedAsFetched) {
   auto& chip = addDropChip();
   const Pelt::IntfId intf = addPort("Ethernet1", 130);
   const auto show = [&] {
      return printed([&](U32 fd) { chip.mauDrops().show(ZelCounter::ShowTarget(fd), intf, true); });
   };
   EXPECT_THAT(show(), HasSubstr("MAU and deparser drops not fetched yet\n"));
   StubSdk::sdk().mauDrops[{1, BF_PIPE_MAU_FORWARDING}] = 6;
   StubSdk::sdk().mauDrops[{1, 100 + BF_PIPE_EGRESS}] = 2;
   StubSdk::sdk().mauDrops[{0, 0}] = 1; // in the other pipe
   chip.fetchAllMauDropCounters();
   const std::string rule = ruler(62);
   const std::string header = "MAU and deparser drops, chip Zel0\n" + rule +
                              "  Pipe  Place             Decides                      Packets\n" + rule;
   const std::string note = rule + "Pipe 1 is that of Ethernet1, shared by all its ports\n";
   EXPECT_EQ(show(), header +
                          "     1  stage 3           forwarding                         6\n"
                          "     1  egress deparser   MTU exceeded                       2\n" +
                          note + "\n");
   StubSdk::sdk().mauDrops[{1, BF_PIPE_MAU_FORWARDING}] = 9;
   printed([&](U32 fd) { chip.mauDrops().clearAll(ZelCounter::ShowTarget(fd)); });
   EXPECT_EQ(show(), header + "  none\n" + note + "\n");
   StubSdk::sdk().statuses[{"deparser", BF_PIPE_EGRESS, 1}] = 22;
   StubSdk::sdk().statuses[{"deparser", BF_PIPE_EGRESS, 0}] = 22; // the other pipe's failure is not shown
   chip.fetchAllMauDropCounters();
   EXPECT_EQ(show(), header + "     1  stage 3           forwarding                         3\n" + note +
                          "Error 22 (Internal error) requesting counters for pipe 1, egress deparser: "
                          "shown as last read\n\n");
}

TEST_F(DropViews, TrafficManagerPollersSurviveAFailingReadAndSaySo) {
   StubSdk::sdk().physicalPipeOffset = 2;
   for (U32 type = 0; type <= BF_TM_PIPE_CUT_THROUGH; ++type) {
      StubSdk::sdk().tm[{2, type}] = {100 + type, 5000 + type};
   }
   auto& chip = addDropChip(0, 0);
   const std::string rule = ruler(81);
   const std::string header = "Traffic manager, chip Zel0\n" + rule +
                              "  Pipe  Counter                Packets or cells               Bytes  State\n" +
                              rule;
   EXPECT_EQ(tmText(chip), header +
                                "     0  in from the pipe                    100                5000  ok\n"
                                "     0  out to the pipe                     101                5001  ok\n"
                                "     0  dropped                             102                5002  ok\n"
                                "     0  multicast copies                    104                5004  ok\n"
                                "     0  cut through                         108                5008  ok\n"
                                "     0  cells in use                        106       not supported  ok\n"
                                "     0  cells of a port, peak               107       not supported  ok\n" +
                                rule + "\n");
   printed([&](U32 fd) { chip.clearAllTmCounters(fd); });
   StubSdk::sdk().statuses[{"tm", BF_TM_PIPE_DROPS, 2}] = 5;
   StubSdk::sdk().tm[{2, BF_TM_PIPE_EGRESS}] = {111, 5101};
   StubSdk::sdk().tm[{2, BF_TM_PIPE_DROPS}] = {200, 9000};
   advance(2.0);
   const std::string levels = "     0  cells in use                        106       not supported  ok\n"
                              "     0  cells of a port, peak               107       not supported  ok\n";
   EXPECT_EQ(tmText(chip), header +
                                "     0  out to the pipe                      10                 100  ok\n"
                                "     0  dropped                               0                   0  "
                                "Error 5 (HW access fails)\n" +
                                levels + rule + "\n");
   StubSdk::sdk().statuses.clear();
   refuseQueueSyncs();
   StubSdk::sdk().tm[{2, BF_TM_PIPE_EGRESS}] = {1, 60}; // the chip was reset
   advance(2.0);
   EXPECT_EQ(tmText(chip), header +
                                "     0  out to the pipe                      11                 160  ok\n"
                                "     0  dropped                              98                3998  ok\n" +
                                levels + rule + "\n");
   deleteChip(0);
   auto& again = addChip(0, 0, makeCatalogue(0));
   EXPECT_TRUE(tmClear->countersByDevIdIs(0)->countersByPipe().empty());
   EXPECT_THAT(tmText(again), HasSubstr("dropped                      never read          never read  "
                                        "not read yet\n"));
   advance(2.0);
   EXPECT_THAT(tmText(again), HasSubstr("dropped                              98                3998  ok\n"))
        << "the clear stands";
}

TEST_F(DropViews, WhatIsPublishedFollowsClearsReadsThatFailAndPassesThatOverlap) {
   const Silo::Store store = Silo::Store::temporary();
   const Silo::TableOptions options{4, 2.0, Silo::ClockDomain::simulatedTime(), {}, false};
   const auto tables =
        Kiln::allocate<Vex::ChipTables>(store, Vex::ChipTables::Options{options, options, options, "1"});
   publisher = Kiln::allocate<Vex::ChipPublisher>(tables);
   auto& chip = addDropChip();
   addPort("Ethernet1", 5);
   addPort("Ethernet2", 128 + 5);
   const auto published = [&](const char* intf) {
      return tables->drops().sampleOrDefault(Silo::Key(intf)).record.totals[0][0];
   };
   dropsAre(ingressHandle, 5, 0, 10);
   dropsAre(ingressHandle, 128 + 5, 0, 20);
   advance(2.0);
   EXPECT_EQ(published("Ethernet1"), 10U);
   chip.clearTableCounters(0, 2, 0); // of one pipe
   dropsAre(ingressHandle, 5, 0, 7);
   dropsAre(ingressHandle, 128 + 5, 0, 25);
   StubSdk::sdk().statuses[{"counterReadIndirectStart", ingressHandle, 0}] = 14;
   advance(2.0);
   EXPECT_EQ(published("Ethernet1"), 10U);
   EXPECT_EQ(published("Ethernet2"), 25U);
   EXPECT_EQ(chip.readings().reading({ZelCounter::ReadingKey::Kind::tableCopy, ingressHandle, 1}).readTime,
             Kiln::never)
        << "no command has read it";
   StubSdk::sdk().statuses.erase({"counterReadIndirectStart", ingressHandle, 0});
   StubSdk::sdk().statuses[{"counterHwSync", ingressHandle, 0}] = 5;
   advance(2.0);
   EXPECT_EQ(published("Ethernet1"), 17U) << "what the sync before has brought";

   struct Amid { // behind the slices of pipe 0, which come one a turn: drops, classes, path
      void handle() {
         if (++turns < 5) {
            timer.timeMinIs(Kiln::System::currentTime());
            return;
         }
         StubSdk::sdk().path[{0, BF_PIPE_PATH_PARSER}] = {9, 9, 0};
         chip.handleSyncPass();
      }
      ZelCounters& chip;
      int turns = 0;
      Kiln::Timer<Amid> timer{Kiln::activityManagerClock(), this, &Amid::handle};
   } amid{chip};
   amid.timer.timeMinIs(Kiln::System::currentTime() + 2.0);
   advance(2.0);
   EXPECT_EQ(tables->stages().sampleOrDefault(Silo::Key("Zel0:0")).record.totals[BF_PIPE_PATH_PARSER][0], 9U);
}

TEST_F(DropViews, AChipThatIsNotInitializedSaysSoOnly) {
   auto& chip = addDropChip();
   const Pelt::IntfId intf = addPort("Ethernet1", 0);
   chip.initializedIs(false);
   const std::vector<std::function<void(U32)>> operations = {
        [&](U32 fd) { chip.showAllPipelineCounters(fd, false); },
        [&](U32 fd) { chip.pipeline().show(ZelCounter::ShowTarget(fd), 0, false); },
        [&](U32 fd) { chip.clearAllPipelineCounters(fd); },
        [&](U32 fd) { chip.showAllDropCounters(fd, false); },
        [&](U32 fd) { chip.portDrops().show(ZelCounter::ShowTarget(fd), {.intf = intf}); },
        [&](U32 fd) { chip.portDrops().clearAll(ZelCounter::ShowTarget(fd)); },
        [&](U32 fd) { chip.showAllMauDropCounters(fd, false); },
        [&](U32 fd) { chip.mauDrops().show(ZelCounter::ShowTarget(fd), intf, false); },
        [&](U32 fd) { chip.mauDrops().clearAll(ZelCounter::ShowTarget(fd)); },
        [&](U32 fd) { chip.tm().showAll(ZelCounter::ShowTarget(fd), false); },
        [&](U32 fd) { chip.clearAllTmCounters(fd); },
   };
   for (std::size_t i = 0; i < operations.size(); ++i) {
      EXPECT_EQ(printed(operations[i]), "Agent not initialized yet") << i;
   }
}

TEST(CliPortDropData, AnInterfaceThatMovesOnItsChipLeavesWhatItCountedAtItsOldPort) {
   const auto data = Kiln::allocate<ZelCounter::CliPortDropData>();
   const Pelt::IntfId intf("Ethernet1");
   data->portDropsIs(0, 4, intf)[0].read(0, 1, {7});
   ASSERT_EQ(data->portDropsIs(0, 4, intf)[0].sinceClear(0), 7U);
   data->portIs(intf, 0, 5);
   data->portIs(intf, 0, 4); // it comes back
   EXPECT_EQ(data->portDropsIs(0, 4, intf)[0].sinceClear(0), 0U);
}

} // namespace

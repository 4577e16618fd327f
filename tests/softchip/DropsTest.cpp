// Where the chip counts the frames that it drops, and that it loses none uncounted.
#include "sdk/bf_pipe.h"
#include "sdk/bf_tm.h"
#include "tests/softchip/SoftChipRig.h"

#include <functional>
#include <gtest/gtest.h>
#include <map>

namespace SoftChip {
namespace {

using Counts = std::map<Kiln::String, U64>; // by "POINT/REASON of port N", or by stage

// Ports 0, 1 and 7 are in pipe 0, port 128 in pipe 1. Port 7 is slow.
class Drops : public ZelTest::SoftChipRig {
 protected:
   Drops() { start(); }

   // Starts with a new chip, which knows station 0b behind port 1.
   void start() {
      fleet->chipDel(0);
      chip = &addChip();
      for (const U16 port : {U16{0}, U16{1}, U16{7}, U16{128}}) {
         chip->portAdd(port);
      }
      chip->receive(1, frame(broadcastMac, 0x0b));
   }

   // The packets of a drop table: of one reason at one port, or of all.
   U64 dropped(ZlDrop::Point point, U16 port, U32 reason) const {
      return chip
           ->tableEntry(ZlDrop::tables[static_cast<std::size_t>(point)].name, ZlPort::pipeOf(port),
                        ZlDrop::entryIndex(ZlPort::slotOf(port), reason))
           .packets;
   }
   U64 droppedOfAll(ZlDrop::Point point) const {
      U64 sum = 0;
      for (U32 entry = 0; entry < 2 * ZlDrop::tableSize; ++entry) {
         sum += dropped(point, static_cast<U16>(entry / ZlDrop::reasonsPerPort),
                        entry % ZlDrop::reasonsPerPort);
      }
      return sum;
   }

   // All drop counters of ports, stages and deparsers that are not zero.
   Counts drops() const {
      Counts found;
      const auto enter = [&](const Kiln::String& name, U64 packets) {
         if (packets > 0) {
            found[name] = packets;
         }
      };
      for (U32 entry = 0; entry < ZlDrop::tables.size() * 2 * ZlDrop::tableSize; ++entry) {
         const U32 reason = entry % ZlDrop::reasonsPerPort;
         const U32 port = entry / ZlDrop::reasonsPerPort % (2 * ZlPort::slotsPerPipe);
         const U32 point = entry / (2 * ZlDrop::tableSize);
         const ZlDrop::Table& table = ZlDrop::tables[point];
         enter(Kiln::String(table.point) + "/" +
                    (reason < table.reasons.size() ? table.reasons[reason] : "reserved") + " of port " +
                    std::to_string(port),
               dropped(ZlDrop::Point(point), static_cast<U16>(port), reason));
      }
      for (U16 pipe = 0; pipe < 2; ++pipe) {
         for (U32 stage = 0; stage < BF_PIPE_MAU_STAGES; ++stage) {
            enter("stage " + std::to_string(stage) + " of pipe " + std::to_string(pipe),
                  mauDrops(pipe, stage));
         }
         enter("ingress deparser of pipe " + std::to_string(pipe), deparserDrops(pipe, BF_PIPE_INGRESS));
         enter("egress deparser of pipe " + std::to_string(pipe), deparserDrops(pipe, BF_PIPE_EGRESS));
      }
      return found;
   }

   static U64 mauDrops(U16 pipe, U32 stage) {
      U64 packets = 0;
      EXPECT_EQ(bf_pipe_mau_drop_get(0, pipe, stage, &packets), 0);
      return packets;
   }
   static U64 deparserDrops(U16 pipe, U32 direction) {
      U64 packets = 0;
      EXPECT_EQ(bf_pipe_deparser_drop_get(0, pipe, direction, &packets), 0);
      return packets;
   }
   static bf_tm_pipe_counter_t tm(U16 pipe, U32 type) {
      bf_tm_pipe_counter_t counter{};
      EXPECT_EQ(bf_tm_pipe_counter_get(0, pipe, type, &counter), 0);
      return counter;
   }
   static bf_pipe_path_count_t path(U16 pipe, U32 stage) {
      bf_pipe_path_count_t count{};
      EXPECT_EQ(bf_pipe_path_counter_get(0, pipe, stage, &count), 0);
      return count;
   }

   Chip* chip = nullptr;
};

// The scenario of drops has the other reasons on arrival, and their stages.
TEST_F(Drops, EachReasonRaisesItsOwnCountersAndNoOthers) {
   using Change = std::function<void(Chip&, FrameInfo&)>;
   struct Case {
      const char* what;
      Change change;
      Counts expected;
   };
   const std::vector<Case> cases = {
        {"nothing", [](Chip&, FrameInfo&) {}, {}},
        {"bad FCS",
         [](Chip&, FrameInfo& f) { f.fcsError = true; },
         {{"ingress/bad FCS of port 0", 5}, {"final/lost at the port of port 0", 5}}},
        {"ingress ACL",
         [](Chip& c, FrameInfo& f) {
            S32 handle = 0;
            f.ip = {.protocol = 132};
            ASSERT_EQ(c.entryDel("ingressAcl", 7), 0);
            ASSERT_EQ(c.entryAdd("ingressAcl", {.ipProtocol = 132, .drop = true}, &handle), 0);
         },
         {{"ingress/ACL denied of port 0", 5},
          {"final/lost at ingress of port 0", 5},
          {"stage 2 of pipe 0", 5}}},
        {"QoS policy, and an ACL behind it",
         [](Chip& c, FrameInfo& f) {
            S32 handle = 0;
            f.ip = {.protocol = 17};
            f.ip.destinationPort = 19;
            ASSERT_EQ(c.entryDel("ingressAcl", 6), 0);
            ASSERT_EQ(c.entryAdd("ingressAcl", {.ipProtocol = 17, .drop = true}, &handle), 0);
         },
         {{"ingress/QoS policy of port 0", 5},
          {"final/lost at ingress of port 0", 5},
          {"stage 1 of pipe 0", 5}}},
        {"VLAN on leaving",
         [](Chip& c, FrameInfo&) { c.vlanAllowedIs(1, 1, false); },
         {{"egress/VLAN not allowed of port 1", 5},
          {"final/lost at egress of port 0", 5},
          {"stage 4 of pipe 0", 5}}},
        {"egress ACL",
         [](Chip& c, FrameInfo&) {
            S32 handle = 0;
            ASSERT_EQ(c.entryDel("egressAcl", 3), 0);
            ASSERT_EQ(c.entryAdd("egressAcl", {.vlanId = 1, .drop = true}, &handle), 0);
         },
         {{"egress/ACL denied of port 1", 5},
          {"final/lost at egress of port 0", 5},
          {"stage 5 of pipe 0", 5}}},
        {"MTU of one of several ports",
         [](Chip& c, FrameInfo& f) {
            c.mtuIs(128, 64);
            f.wireLength = 65;
            f.destinationMac = 0xcc;
         },
         {{"egress/MTU exceeded of port 128", 5}, {"egress deparser of pipe 1", 5}}},
        {"MTU of the only port",
         [](Chip& c, FrameInfo& f) {
            c.mtuIs(1, 64);
            f.wireLength = 65;
         },
         {{"egress/MTU exceeded of port 1", 5},
          {"final/lost at egress of port 0", 5},
          {"egress deparser of pipe 0", 5}}},
   };
   for (const Case& each : cases) {
      SCOPED_TRACE(each.what);
      start();
      FrameInfo sent = frame(0x0b, 0x0a);
      each.change(*chip, sent);
      chip->receive(0, sent, 5);
      EXPECT_EQ(drops(), each.expected);
   }
}

// 25 million octets at once fill the burst of a slow port, of which the lowest queue gets 25/32.
constexpr U64 slowRoom = 25'000'000ULL * 25 / 32 / 80;

TEST_F(Drops, ACongestedQueueLosesAFrameOnlyWhenNoOtherCopyLeft) {
   chip->receive(7, frame(broadcastMac, 0x0c));
   chip->receive(0, frame(0x0c, 0x0a), slowRoom + 10);
   const Counts unicast = {{"egress/queue congested of port 7", 11},
                           {"final/lost in the queues of port 0", 11}};
   EXPECT_EQ(drops(), unicast);
   chip->receive(0, frame(broadcastMac, 0x0a), 3);
   EXPECT_EQ(dropped(ZlDrop::Point::egress, 7, static_cast<U32>(ZlDrop::EgressReason::queueCongested)), 14U);
   EXPECT_EQ(droppedOfAll(ZlDrop::Point::final), 11U) << "the other ports have sent their copies";
   EXPECT_EQ(path(0, BF_PIPE_PATH_TRAFFIC_MANAGER).dropped, 14U);
   EXPECT_EQ(tm(0, BF_TM_PIPE_DROPS).count, 14U);
   EXPECT_EQ(tm(0, BF_TM_PIPE_DROPS).bytes, 14U * 60);
}

TEST_F(Drops, TheTrafficManagerTellsCopiesCutThroughAndCells) {
   advance(1);
   chip->receive(0, frame(0x0b, 0x0a), 4); // to an idle port of the same speed
   EXPECT_EQ(tm(0, BF_TM_PIPE_CUT_THROUGH).count, 4U);
   chip->receive(0, frame(0x0b, 0x0a), 2); // the port is busy now
   chip->receive(7, frame(0x0a, 0x0c), 1); // from a slower port
   chip->receive(1, frame(broadcastMac, 0x0b), 2);
   EXPECT_EQ(tm(0, BF_TM_PIPE_CUT_THROUGH).count, 4U);
   EXPECT_EQ(tm(0, BF_TM_PIPE_MULTICAST).count, 2U + 2 * 2) << "the one at the start too";
   EXPECT_EQ(tm(1, BF_TM_PIPE_MULTICAST).count, 1U + 2);
   EXPECT_EQ(tm(0, BF_TM_PIPE_INGRESS).count, 1U + 4 + 2 + 1 + 2);
   EXPECT_EQ(tm(0, BF_TM_PIPE_INGRESS).bytes, 10U * 60);
   EXPECT_EQ(tm(0, BF_TM_PIPE_EGRESS).count, 2U + 4 + 2 + 1 + 4);

   advance(1);
   chip->receive(0, frame(0x0c, 0x0a), 100'000); // 60 octets, gap and preamble are a cell; 8 million octets
   EXPECT_EQ(tm(0, BF_TM_PIPE_CELLS).count, 100'000U);
   EXPECT_EQ(tm(1, BF_TM_PIPE_CELLS).count, 0U);
   advance(0.032);
   EXPECT_EQ(tm(0, BF_TM_PIPE_CELLS).count, 50'000U) << "125 million octets a second";
   advance(1);
   EXPECT_EQ(tm(0, BF_TM_PIPE_CELLS).count, 0U);
   chip->receive(0, frame(0x0c, 0x0a));
   EXPECT_EQ(tm(0, BF_TM_PIPE_WATERMARK).count, 100'000U);
}

TEST_F(Drops, RefusesToReadWhatIsNotCounted) {
   bf_tm_pipe_counter_t counter{};
   for (const U32 type : {3U, 5U, 9U}) {
      EXPECT_EQ(bf_tm_pipe_counter_get(0, 0, type, &counter), 3) << type;
   }
   bf_pipe_path_count_t count{};
   U64 packets = 0;
   EXPECT_EQ(bf_tm_pipe_counter_get(0, 2, BF_TM_PIPE_DROPS, &counter), 3) << "the chip has two pipes";
   EXPECT_EQ(bf_pipe_path_counter_get(0, 0, BF_PIPE_PATH_STAGES, &count), 3);
   EXPECT_EQ(bf_pipe_path_counter_get(0, 2, 0, &count), 3);
   EXPECT_EQ(bf_pipe_mau_drop_get(0, 0, BF_PIPE_MAU_STAGES, &packets), 3);
   EXPECT_EQ(bf_pipe_deparser_drop_get(0, 0, BF_PIPE_DIRECTIONS, &packets), 3);
   EXPECT_THROW(chip->mtuIs(0, 63), std::invalid_argument);
   EXPECT_THROW(chip->vlanAllowedIs(0, 4095, false), std::invalid_argument);
}

// Synthetic traffic through ports that drop for every possible reason.
TEST_F(Drops, EveryFrameIsAccountedForAtEveryStage) {
   chip->mtuIs(1, 1000);
   chip->vlanAllowedIs(128, 1, false);
   chip->floodsIs(7, false);
   Traffic traffic(*fleet, Kiln::activityManagerClock(), 11);
   traffic.onIs(true);
   advance(5);
   traffic.onIs(false);

   U64 tmIn = 0;
   U64 tmCopies = 0;
   for (U16 pipe = 0; pipe < 2; ++pipe) {
      SCOPED_TRACE(pipe);
      U64 received = 0;
      U64 consumed = 0;
      U64 sent = 0;
      for (const U16 port : chip->ports()) {
         if (ZlPort::pipeOf(port) == pipe) {
            received += chip->rmon(port, BF_RMON_FRAMES_RECEIVED_ALL);
            consumed += chip->rmon(port, BF_RMON_MAC_CONTROL_FRAMES_RECEIVED);
            sent += chip->rmon(port, BF_RMON_FRAMES_TRANSMITTED_ALL);
         }
      }
      const bf_pipe_path_count_t rx = path(pipe, BF_PIPE_PATH_PORT_RX);
      EXPECT_EQ(rx.in, received);
      EXPECT_EQ(rx.in, rx.out + rx.dropped + consumed);
      EXPECT_EQ(path(pipe, BF_PIPE_PATH_PORT_TX).out, sent);
      for (U32 stage = BF_PIPE_PATH_PARSER; stage < BF_PIPE_PATH_STAGES; ++stage) {
         EXPECT_EQ(path(pipe, stage).in, path(pipe, stage - 1).out) << stage;
         if (stage != BF_PIPE_PATH_TRAFFIC_MANAGER) {
            EXPECT_EQ(path(pipe, stage).in, path(pipe, stage).out + path(pipe, stage).dropped) << stage;
         }
      }
      U64 byMau = 0;
      for (U32 stage = 0; stage < BF_PIPE_MAU_STAGES; ++stage) {
         byMau += mauDrops(pipe, stage);
      }
      EXPECT_EQ(byMau, path(pipe, BF_PIPE_PATH_INGRESS).dropped + path(pipe, BF_PIPE_PATH_EGRESS).dropped);
      EXPECT_EQ(deparserDrops(pipe, BF_PIPE_EGRESS), path(pipe, BF_PIPE_PATH_EGRESS_DEPARSER).dropped);
      tmIn += tm(pipe, BF_TM_PIPE_INGRESS).count;
      tmCopies += tm(pipe, BF_TM_PIPE_EGRESS).count + tm(pipe, BF_TM_PIPE_DROPS).count;
      EXPECT_EQ(tm(pipe, BF_TM_PIPE_EGRESS).count, path(pipe, BF_PIPE_PATH_TRAFFIC_MANAGER).out);
   }
   const auto droppedAt = [&](U32 stage) { return path(0, stage).dropped + path(1, stage).dropped; };
   EXPECT_EQ(droppedOfAll(ZlDrop::Point::ingress), droppedAt(BF_PIPE_PATH_PORT_RX) +
                                                        droppedAt(BF_PIPE_PATH_INGRESS) +
                                                        droppedAt(BF_PIPE_PATH_INGRESS_DEPARSER));
   EXPECT_EQ(droppedOfAll(ZlDrop::Point::egress), droppedAt(BF_PIPE_PATH_TRAFFIC_MANAGER) +
                                                       droppedAt(BF_PIPE_PATH_EGRESS) +
                                                       droppedAt(BF_PIPE_PATH_EGRESS_DEPARSER));
   EXPECT_GT(droppedAt(BF_PIPE_PATH_EGRESS_DEPARSER), 0U);
   EXPECT_GT(droppedAt(BF_PIPE_PATH_PORT_RX), 0U);
   EXPECT_GT(droppedAt(BF_PIPE_PATH_INGRESS), 0U);
   const U64 multicast = tm(0, BF_TM_PIPE_MULTICAST).count + tm(1, BF_TM_PIPE_MULTICAST).count;
   EXPECT_GT(multicast, 0U);
   EXPECT_GE(tmIn, tmCopies - multicast) << "a frame that is not multicast has one copy";
}

} // namespace
} // namespace SoftChip

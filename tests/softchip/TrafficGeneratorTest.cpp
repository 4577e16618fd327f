// Synthetic traffic: plausible, and the same for the same seed however it is asked for.
#include "softchip/TrafficGenerator.h"

#include "kiln/Types.h"
#include "softchip/RmonCounters.h"

#include <array>
#include <gtest/gtest.h>
#include <set>
#include <stdexcept>

namespace SoftChip {
namespace {

using namespace std::chrono_literals;
using Rmon = std::array<U64, BF_NUM_RMON_COUNTERS>;

// The frames that arrive at the port by `end` if the generator is asked once every `step`.
Rmon countUntil(TrafficGenerator& traffic, std::size_t port, std::chrono::nanoseconds end,
                std::chrono::nanoseconds step) {
   Rmon rmon{};
   TrafficBatch batch;
   for (auto time = step; time < end + step; time += step) {
      while (traffic.next(port, std::min(time, end), batch)) {
         countReceived(batch.frame, rmon.data(), batch.repeat);
      }
   }
   return rmon;
}

TEST(TrafficGenerator, SameSeedGivesSameFramesHoweverAskedFor) {
   TrafficGenerator seldom(5, 4);
   TrafficGenerator often(5, 4);
   TrafficGenerator other(6, 4);
   for (std::size_t port : {0U, 3U}) {
      Rmon expected = countUntil(seldom, port, 10s, 10s);
      EXPECT_EQ(expected, countUntil(often, port, 10s, 7ms));
      EXPECT_NE(expected, countUntil(other, port, 10s, 10s));
   }
}

TEST(TrafficGenerator, FramesArriveAtThePortsOwnRate) {
   TrafficGenerator traffic(1, 64);
   std::set<U64> rates;
   for (std::size_t port = 0; port < 64; ++port) {
      U64 rate = traffic.framesPerSecond(port);
      rates.insert(rate);
      EXPECT_EQ(rate * 5 / 2, countUntil(traffic, port, 2500ms, 100ms)[BF_RMON_FRAMES_RECEIVED_ALL]);
   }
   EXPECT_GT(rates.size(), 60U);
   EXPECT_GT(*rates.rbegin(), 100 * *rates.begin());
   TrafficBatch batch;
   EXPECT_FALSE(traffic.next(0, 2500ms, batch)) << "time that stands still brings no frames";
   EXPECT_FALSE(traffic.next(0, 0s, batch));
   EXPECT_TRUE(traffic.next(0, 24h * 365 * 100, batch));
   EXPECT_THROW(traffic.next(64, 1s, batch), std::out_of_range);
}

TEST(TrafficGenerator, CostDoesNotFollowTheRate) {
   TrafficGenerator traffic(1, 64);
   for (std::size_t port = 0; port < 64; ++port) {
      std::size_t batches = 0;
      for (TrafficBatch batch; traffic.next(port, 10s, batch);) {
         ++batches;
      }
      EXPECT_LT(batches, 4000U) << traffic.framesPerSecond(port) << " frames/s";
   }
}

TEST(TrafficGenerator, EveryCounterThatTrafficCanRaiseRises) {
   const std::set<bf_rmon_counter_t> notByTraffic = {BF_RMON_UNSUPPORTED_OPCODES_RECEIVED,
                                                     BF_RMON_IN_RANGE_LENGTH_ERRORS,
                                                     BF_RMON_OUT_OF_RANGE_LENGTH_FIELDS,
                                                     BF_RMON_FRAME_TOO_LONG_ERRORS,
                                                     BF_RMON_ALIGNMENT_ERRORS,
                                                     BF_RMON_SYMBOL_ERRORS,
                                                     BF_RMON_INTERNAL_MAC_RECEIVE_ERRORS,
                                                     BF_RMON_FRAMES_DROPPED_ON_RECEIVE};
   TrafficGenerator traffic(3, 2);
   Rmon rmon = countUntil(traffic, 1, 1h, 1h);
   for (std::size_t i = 0; i <= BF_RMON_PFC_FRAMES_RECEIVED_PRIORITY_7; ++i) {
      bool transmit = i >= BF_RMON_FRAMES_TRANSMITTED_OK && i < BF_RMON_PFC_FRAMES_RECEIVED_PRIORITY_0;
      bool expected = !transmit && notByTraffic.count(rmonCounters[i].index) == 0;
      EXPECT_EQ(expected, rmon[i] != 0) << rmonCounters[i].name;
   }
}

// The length of all the headers that the frame claims to have.
U32 headerOctets(const FrameInfo& frame) {
   U32 octets = 18 + 4U * frame.tagCount;
   if (frame.ip.version != IpVersion::none) {
      octets +=
           (frame.ip.version == IpVersion::v4 ? 20U : 40U) + (frame.ip.protocol == ipProtocolTcp ? 20U : 8U);
   }
   return octets + (frame.vxlan.present ? 8 + 60 : 0);
}

TEST(TrafficGenerator, FramesAreConsistent) {
   TrafficGenerator traffic(9, 3);
   TrafficBatch batch;
   for (int i = 0; i < 100'000; ++i) {
      ASSERT_TRUE(traffic.next(2, 24h, batch));
      const FrameInfo& frame = batch.frame;
      ASSERT_GE(batch.repeat, 1U);
      ASSERT_GE(frame.wireLength, headerOctets(frame));
      ASSERT_EQ(destinationKind(frame.destinationMac), frame.destination);
      ASSERT_EQ(Destination::unicast, destinationKind(frame.sourceMac));
      ASSERT_EQ(frame.tagCount > 0, frame.outerTag.present());
      ASSERT_EQ(frame.tagCount > 1, frame.innerTag.present());
      ASSERT_TRUE(!frame.tagged() || (frame.outerTag.vlanId >= 1 && frame.outerTag.vlanId <= 4094));
      ASSERT_EQ(frame.etherType == etherTypeIpv4, frame.ip.version == IpVersion::v4);
      ASSERT_EQ(frame.etherType == etherTypeIpv6, frame.ip.version == IpVersion::v6);
      ASSERT_EQ(frame.vxlan.present, frame.ip.destinationPort == vxlanUdpPort);
      ASSERT_EQ(frame.macControl.present, frame.etherType == etherTypeMacControl);
   }
}

TEST(TrafficGenerator, SeedMeansTheSameOnEveryMachine) {
   // The published sequence of splitmix64 for this seed.
   SeededRandom random(1234567);
   for (U64 expected : {6457827717110365317U, 3203168211198807973U, 9817491932198370423U}) {
      EXPECT_EQ(expected, random.next());
   }
   TrafficGenerator traffic(42, 8);
   Rmon rmon = countUntil(traffic, 5, 100s, 1s);
   EXPECT_EQ(1061U, traffic.framesPerSecond(5));
   EXPECT_EQ(56031470U, rmon[BF_RMON_OCTETS_RECEIVED_ALL]);
   EXPECT_EQ(13U, rmon[BF_RMON_PFC_FRAMES_RECEIVED_PRIORITY_3]);
}

} // namespace
} // namespace SoftChip

// Which counters a frame raises, and that the manual agrees with the chip.
#include "softchip/RmonCounters.h"

#include "kiln/Types.h"
#include "softchip/TrafficGenerator.h"
#include "tests/support/Manual.h"

#include <array>
#include <gtest/gtest.h>
#include <map>
#include <set>
#include <string>
#include <vector>

namespace SoftChip {
namespace {

using Rmon = std::array<U64, BF_NUM_RMON_COUNTERS>;
using Counts = std::map<std::string, U64>;

Counts nonzero(const Rmon& rmon) {
   Counts counts;
   for (const RmonCounter& counter : rmonCounters) {
      if (rmon[counter.index] != 0) {
         counts[counter.name] = rmon[counter.index];
      }
   }
   return counts;
}

FrameInfo frameOf(U32 wireLength, bool fcsError = false) {
   FrameInfo frame;
   frame.wireLength = wireLength;
   frame.fcsError = fcsError;
   frame.hasEtherType = true;
   frame.etherType = etherTypeIpv4;
   return frame;
}

// Receives three such frames, and returns what they counted.
Counts countsOf(const FrameInfo& frame) {
   Rmon rmon{};
   countReceived(frame, rmon.data(), 2);
   countReceived(frame, rmon.data());
   return nonzero(rmon);
}

TEST(RmonCounters, GoodFrameCountsByDestinationTagsAndSize) {
   FrameInfo frame = frameOf(100);
   frame.destination = Destination::multicast;
   frame.outerTag.tpid = tpidService;
   frame.innerTag.tpid = tpidCustomer;
   frame.tagCount = 2;
   EXPECT_EQ((Counts{{"FramesReceivedOK", 3},
                     {"FramesReceivedAll", 3},
                     {"OctetsReceivedGood", 300},
                     {"OctetsReceivedAll", 300},
                     {"DataOctetsReceivedOK", 246},
                     {"MulticastFramesReceivedOK", 3},
                     {"VlanTaggedFramesReceivedOK", 3},
                     {"DoubleTaggedFramesReceivedOK", 3},
                     {"FramesReceived65to127Octets", 3}}),
             countsOf(frame));
}

TEST(RmonCounters, BadFrameCountsNowhereAmongGoodOnes) {
   FrameInfo frame = frameOf(100, true);
   frame.outerTag.tpid = tpidCustomer;
   frame.tagCount = 1;
   frame.macControl.present = true;
   EXPECT_EQ((Counts{{"FramesReceivedAll", 3},
                     {"FrameCheckSequenceErrors", 3},
                     {"FramesReceivedWithErrors", 3},
                     {"OctetsReceivedAll", 300},
                     {"CrcAlignErrors", 3},
                     {"FramesReceived65to127Octets", 3}}),
             countsOf(frame));
}

// The counters that such a frame raises, but a plain one of its length does not.
std::set<std::string> extraCounts(const FrameInfo& frame) {
   Counts plain = countsOf(frameOf(frame.wireLength));
   std::set<std::string> extra;
   for (auto& [name, value] : countsOf(frame)) {
      if (plain.count(name) == 0) {
         extra.insert(name);
      }
   }
   return extra;
}

TEST(RmonCounters, SizesMeetWithoutGapOrOverlap) {
   struct {
      U32 low, high;
      const char* good;
      const char* bad;
   } ranges[] = {{0, 63, "UndersizeFramesReceived", "FragmentsReceived"},
                 {64, 64, "FramesReceived64Octets", "CrcAlignErrors"},
                 {65, 127, "FramesReceived65to127Octets", "CrcAlignErrors"},
                 {128, 255, "FramesReceived128to255Octets", "CrcAlignErrors"},
                 {256, 511, "FramesReceived256to511Octets", "CrcAlignErrors"},
                 {512, 1023, "FramesReceived512to1023Octets", "CrcAlignErrors"},
                 {1024, 1518, "FramesReceived1024to1518Octets", "CrcAlignErrors"},
                 {1519, 2047, "FramesReceived1519to2047Octets", "JabbersReceived"},
                 {2048, 4095, "FramesReceived2048to4095Octets", "JabbersReceived"},
                 {4096, 8191, "FramesReceived4096to8191Octets", "JabbersReceived"},
                 {8192, 9215, "FramesReceived8192to9215Octets", "JabbersReceived"},
                 {9216, 262148, "FramesReceived9216OrMoreOctets", "JabbersReceived"}};
   std::set<std::string> sizeCounters = {"OversizeFramesReceived"};
   for (auto& range : ranges) {
      sizeCounters.insert(range.good);
   }
   for (auto& range : ranges) {
      for (U32 length : {range.low, range.high}) {
         std::set<std::string> expected = {range.good};
         if (length > 1518) {
            expected.insert("OversizeFramesReceived");
         }
         std::set<std::string> got;
         for (auto& [name, value] : countsOf(frameOf(length))) {
            if (sizeCounters.count(name) != 0) {
               got.insert(name);
            }
         }
         EXPECT_EQ(expected, got) << length;
         expected = {"FrameCheckSequenceErrors", "FramesReceivedWithErrors", range.bad};
         EXPECT_EQ(expected, extraCounts(frameOf(length, true))) << length;
      }
   }
}

TEST(RmonCounters, MacControlCountsByOpcodeAndPriority) {
   struct {
      MacControl control;
      std::set<std::string> counters;
   } cases[] = {{{true, macControlPause, 0}, {"PauseFramesReceived"}},
                {{true, macControlPfc, 0x81},
                 {"PfcFramesReceived", "PfcFramesReceivedPriority0", "PfcFramesReceivedPriority7"}},
                {{true, 0x0002, 0}, {"UnsupportedOpcodesReceived"}}};
   for (auto& c : cases) {
      FrameInfo frame = frameOf(64);
      frame.macControl = c.control;
      c.counters.insert("MacControlFramesReceived");
      EXPECT_EQ(c.counters, extraCounts(frame)) << c.control.opcode;
   }
}

TEST(RmonCounters, LengthFieldMustMatchDataOrPadding) {
   const std::set<std::string> sound;
   const std::set<std::string> mismatch = {"InRangeLengthErrors"};
   const std::set<std::string> neither = {"OutOfRangeLengthFields"};
   struct {
      U32 wireLength;
      U8 tags;
      std::set<std::string> error;
      std::vector<U16> fields;
   } cases[] = {{100, 0, sound, {82, 1536}},     {100, 0, mismatch, {0, 45, 81, 83, 1500}},
                {100, 0, neither, {1501, 1535}}, {104, 1, sound, {82}},
                {104, 1, mismatch, {0, 81, 86}}, {64, 0, sound, {0, 3, 46}},
                {68, 1, sound, {0, 3, 46}},      {65, 0, mismatch, {0, 3, 46}}};
   for (auto& c : cases) {
      for (U16 field : c.fields) {
         FrameInfo frame = frameOf(c.wireLength);
         frame.etherType = field;
         frame.tagCount = c.tags;
         EXPECT_EQ(c.error, extraCounts(frame)) << field << " in " << c.wireLength;
      }
   }
}

// The name of a receive counter and that of its transmit twin differ in one word only.
std::string transmitName(std::string name) {
   if (name == "FrameCheckSequenceErrors") {
      return "FramesTransmittedWithFcsError";
   }
   std::size_t at = name.find("Received");
   return at == std::string::npos ? name : name.replace(at, 8, "Transmitted");
}

TEST(RmonCounters, TransmitCountsLikeReceive) {
   const std::set<std::string> receiveOnly = {"CrcAlignErrors", "UnsupportedOpcodesReceived"};
   TrafficGenerator traffic(7, 1);
   TrafficBatch batch;
   for (int i = 0; i < 20'000; ++i) {
      ASSERT_TRUE(traffic.next(0, std::chrono::hours(24), batch));
      Rmon received{};
      Rmon transmitted{};
      countReceived(batch.frame, received.data(), batch.repeat);
      countTransmitted(batch.frame, transmitted.data(), batch.repeat);
      Counts expected;
      for (auto& [name, value] : nonzero(received)) {
         if (receiveOnly.count(name) == 0) {
            expected[transmitName(name)] = value;
         }
      }
      ASSERT_EQ(expected, nonzero(transmitted));
   }
}

TEST(RmonCounters, SumsWrap) {
   Rmon rmon;
   rmon.fill(UINT64_MAX - 1);
   countReceived(frameOf(100), rmon.data(), 3);
   EXPECT_EQ(1U, rmon[BF_RMON_FRAMES_RECEIVED_ALL]);
   EXPECT_EQ(298U, rmon[BF_RMON_OCTETS_RECEIVED_GOOD]);
}

TEST(RmonCounters, ManualMatchesTable) {
   const auto manual = ZelTest::manualRows("rmon-counters.md", "# RMON counters");
   ASSERT_EQ(manual.size(), std::size(rmonCounters));
   std::set<std::string> names;
   std::set<std::string> fields;
   for (std::size_t row = 0; row < manual.size(); ++row) {
      const std::vector<std::string>& cells = manual[row];
      ASSERT_EQ(cells.size(), 4U) << row;
      EXPECT_EQ(cells[0], std::to_string(row));
      EXPECT_EQ(cells[1], rmonCounters[row].name);
      EXPECT_EQ(cells[2], rmonCounters[row].description);
      EXPECT_TRUE(names.insert(cells[1]).second) << cells[1] << " names two counters";
      EXPECT_TRUE(cells[3] == "-" || fields.insert(cells[3]).second) << cells[3] << " is filled twice";
   }
}

} // namespace
} // namespace SoftChip

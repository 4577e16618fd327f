// What a frame counts in, and that the manual says the same as the chip.
#include "RmonCounters.h"

#include "TrafficGenerator.h"

#include <array>
#include <fstream>
#include <gtest/gtest.h>
#include <map>
#include <random>
#include <set>
#include <string>

namespace SoftChip {
namespace {

using Rmon = std::array<uint64_t, BF_NUM_RMON_COUNTERS>;
using Counts = std::map<std::string, uint64_t>;

Counts nonzero(const Rmon& rmon) {
   Counts counts;
   for (const RmonCounter& counter : rmonCounters)
      if (rmon[counter.index] != 0)
         counts[counter.name] = rmon[counter.index];
   return counts;
}

FrameInfo frameOf(uint32_t wireLength, bool fcsError = false) {
   FrameInfo frame;
   frame.wireLength = wireLength;
   frame.fcsError = fcsError;
   frame.hasEtherType = true;
   frame.etherType = etherTypeIpv4;
   return frame;
}

/** Receives three such frames, and answers what that counts. */
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

TEST(RmonCounters, SizesMeetWithoutGapOrOverlap) {
   const std::string none;
   struct {
      uint32_t length;
      std::string bucket, goodExtra, badExtra;
   } cases[] = {{0, none, "UndersizeFramesReceived", "FragmentsReceived"},
                {63, none, "UndersizeFramesReceived", "FragmentsReceived"},
                {64, "64", none, "CrcAlignErrors"},
                {65, "65to127", none, "CrcAlignErrors"},
                {127, "65to127", none, "CrcAlignErrors"},
                {128, "128to255", none, "CrcAlignErrors"},
                {255, "128to255", none, "CrcAlignErrors"},
                {256, "256to511", none, "CrcAlignErrors"},
                {511, "256to511", none, "CrcAlignErrors"},
                {512, "512to1023", none, "CrcAlignErrors"},
                {1023, "512to1023", none, "CrcAlignErrors"},
                {1024, "1024to1518", none, "CrcAlignErrors"},
                {1518, "1024to1518", none, "CrcAlignErrors"},
                {1519, "1519to2047", "OversizeFramesReceived", "JabbersReceived"},
                {2047, "1519to2047", "OversizeFramesReceived", "JabbersReceived"},
                {2048, "2048to4095", "OversizeFramesReceived", "JabbersReceived"},
                {4096, "4096to8191", "OversizeFramesReceived", "JabbersReceived"},
                {8192, "8192to9215", "OversizeFramesReceived", "JabbersReceived"},
                {9215, "8192to9215", "OversizeFramesReceived", "JabbersReceived"},
                {9216, "9216OrMore", "OversizeFramesReceived", "JabbersReceived"},
                {262148, "9216OrMore", "OversizeFramesReceived", "JabbersReceived"}};
   std::set<std::string> sizeCounters = {"UndersizeFramesReceived", "FragmentsReceived", "CrcAlignErrors",
                                         "OversizeFramesReceived", "JabbersReceived"};
   for (auto& c : cases) {
      if (!c.bucket.empty())
         sizeCounters.insert("FramesReceived" + c.bucket + "Octets");
   }
   for (auto& c : cases) {
      for (bool bad : {false, true}) {
         std::set<std::string> expected = {bad ? c.badExtra : c.goodExtra,
                                           c.bucket.empty() ? none : "FramesReceived" + c.bucket + "Octets"};
         expected.erase(none);
         std::set<std::string> got;
         for (auto& [name, value] : countsOf(frameOf(c.length, bad)))
            if (sizeCounters.count(name) != 0)
               got.insert(name);
         EXPECT_EQ(expected, got) << c.length << (bad ? " bad" : " good");
      }
   }
}

TEST(RmonCounters, MacControlCountsByOpcodeAndPriority) {
   auto withOpcode = [](uint16_t opcode, uint8_t priorities) {
      FrameInfo frame = frameOf(64);
      frame.etherType = etherTypeMacControl;
      frame.macControl = {true, opcode, priorities};
      Counts counts = countsOf(frame);
      for (const char* name :
           {"FramesReceivedOK", "FramesReceivedAll", "OctetsReceivedGood", "OctetsReceivedAll",
            "DataOctetsReceivedOK", "UnicastFramesReceivedOK", "FramesReceived64Octets"})
         counts.erase(name);
      return counts;
   };
   EXPECT_EQ((Counts{{"MacControlFramesReceived", 3}, {"PauseFramesReceived", 3}}),
             withOpcode(macControlPause, 0));
   EXPECT_EQ((Counts{{"MacControlFramesReceived", 3},
                     {"PfcFramesReceived", 3},
                     {"PfcFramesReceivedPriority0", 3},
                     {"PfcFramesReceivedPriority7", 3}}),
             withOpcode(macControlPfc, 0x81));
   EXPECT_EQ((Counts{{"MacControlFramesReceived", 3}, {"UnsupportedOpcodesReceived", 3}}),
             withOpcode(0x0002, 0));
}

TEST(RmonCounters, LengthFieldMustMatchDataOrPadding) {
   struct {
      uint16_t etherType;
      uint32_t wireLength;
      uint8_t tags;
      const char* error;
   } cases[] = {{82, 100, 0, ""},
                {83, 100, 0, "InRangeLengthErrors"},
                {81, 100, 0, "InRangeLengthErrors"},
                {78, 100, 1, ""},
                {82, 100, 1, "InRangeLengthErrors"},
                {3, 64, 0, ""},
                {3, 68, 1, ""},
                {3, 65, 0, "InRangeLengthErrors"},
                {1500, 1518, 0, ""},
                {1536, 100, 0, ""},
                {1501, 100, 0, "OutOfRangeLengthFields"},
                {1535, 100, 0, "OutOfRangeLengthFields"}};
   for (auto& c : cases) {
      FrameInfo frame = frameOf(c.wireLength);
      frame.etherType = c.etherType;
      frame.tagCount = c.tags;
      Counts counts = countsOf(frame);
      for (const char* name : {"InRangeLengthErrors", "OutOfRangeLengthFields"})
         EXPECT_EQ(name == std::string(c.error), counts.count(name) != 0)
              << c.etherType << " " << c.wireLength;
   }
}

/** Whatever a receive counter is called, its transmit twin's name differs in one word only. */
std::string transmitName(std::string name) {
   if (name == "FrameCheckSequenceErrors")
      return "FramesTransmittedWithFcsError";
   size_t at = name.find("Received");
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
      for (auto& [name, value] : nonzero(received))
         if (receiveOnly.count(name) == 0)
            expected[transmitName(name)] = value;
      ASSERT_EQ(expected, nonzero(transmitted));
   }
}

TEST(RmonCounters, SumsAgreeAndWrap) {
   Rmon rmon;
   rmon.fill(UINT64_MAX - 10'000); // every sum below wraps, and still agrees modulo 2^64
   const Rmon before = rmon;
   TrafficGenerator traffic(11, 1);
   TrafficBatch batch;
   for (int i = 0; i < 50'000; ++i) {
      ASSERT_TRUE(traffic.next(0, std::chrono::hours(24), batch));
      countReceived(batch.frame, rmon.data(), batch.repeat);
   }
   auto sum = [&](std::initializer_list<bf_rmon_counter_t> indices) {
      uint64_t total = 0;
      for (bf_rmon_counter_t index : indices)
         total += rmon[index] - before[index];
      return total;
   };
   uint64_t buckets = 0;
   for (size_t i = BF_RMON_FRAMES_RECEIVED_64_OCTETS; i <= BF_RMON_FRAMES_RECEIVED_9216_OR_MORE_OCTETS; ++i)
      buckets += rmon[i] - before[i];
   uint64_t all = sum({BF_RMON_FRAMES_RECEIVED_ALL});
   EXPECT_EQ(all, sum({BF_RMON_FRAMES_RECEIVED_OK, BF_RMON_FRAME_CHECK_SEQUENCE_ERRORS}));
   EXPECT_EQ(all, buckets + sum({BF_RMON_UNDERSIZE_FRAMES_RECEIVED, BF_RMON_FRAGMENTS_RECEIVED}));
   EXPECT_EQ(sum({BF_RMON_FRAMES_RECEIVED_OK}),
             sum({BF_RMON_UNICAST_FRAMES_RECEIVED_OK, BF_RMON_MULTICAST_FRAMES_RECEIVED_OK,
                  BF_RMON_BROADCAST_FRAMES_RECEIVED_OK}));
   EXPECT_EQ(sum({BF_RMON_FRAME_CHECK_SEQUENCE_ERRORS}),
             sum({BF_RMON_CRC_ALIGN_ERRORS, BF_RMON_FRAGMENTS_RECEIVED, BF_RMON_JABBERS_RECEIVED}));
   EXPECT_LT(rmon[BF_RMON_OCTETS_RECEIVED_ALL], before[BF_RMON_OCTETS_RECEIVED_ALL]);
}

/** The cells of a table row that begins with a number; nothing for any other line. */
std::vector<std::string> rowCells(const std::string& line) {
   std::vector<std::string> cells;
   if (line.size() < 3 || line[0] != '|' || line[2] < '0' || line[2] > '9')
      return cells;
   for (size_t begin = 2; begin < line.size();) {
      size_t end = line.find(" |", begin);
      if (end == std::string::npos)
         break;
      cells.push_back(line.substr(begin, end - begin));
      begin = end + 3;
   }
   return cells;
}

TEST(RmonCounters, ManualMatchesTable) {
   std::ifstream manual(ZEL_SOURCE_DIR "/docs/rmon-counters.md");
   ASSERT_TRUE(manual);
   std::set<std::string> names;
   std::set<std::string> fields;
   size_t rows = 0;
   for (std::string line; std::getline(manual, line);) {
      std::vector<std::string> cells = rowCells(line);
      if (cells.empty())
         continue;
      ASSERT_LT(rows, std::size(rmonCounters)) << line;
      ASSERT_EQ(4U, cells.size()) << line;
      EXPECT_EQ(std::to_string(rows), cells[0]);
      EXPECT_EQ(rmonCounters[rows].name, cells[1]);
      EXPECT_EQ(rmonCounters[rows].description, cells[2]);
      EXPECT_TRUE(names.insert(cells[1]).second) << cells[1] << " names two counters";
      EXPECT_TRUE(cells[3] == "-" || fields.insert(cells[3]).second) << cells[3] << " is filled twice";
      ++rows;
   }
   EXPECT_EQ(std::size(rmonCounters), rows);
}

} // namespace
} // namespace SoftChip

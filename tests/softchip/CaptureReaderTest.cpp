// Captures that the test writes itself, valid and damaged; and those of tests/captures, compared with another program's
// counts.
#include "softchip/CaptureReader.h"

#include "kiln/Types.h"
#include "softchip/RmonCounters.h"
#include "tests/softchip/Bytes.h"
#include "tests/softchip/CaptureFile.h"
#include "tests/support/TemporaryFolder.h"

#include <array>
#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <map>
#include <string>
#include <vector>

namespace SoftChip {
namespace {

using testing::HasSubstr;
using testing::StartsWith;
using ZelTest::CaptureFile;
using ZelTest::Octets;

// Reads the whole file. Returns the number of frames, or the error's text.
std::string outcome(const std::string& path) {
   std::size_t frames = 0;
   try {
      CaptureReader reader(path);
      while (reader.next()) {
         ++frames;
      }
   } catch (const CaptureError& error) {
      return error.what();
   }
   return std::to_string(frames) + " frames";
}

TEST(CaptureReader, ReadsBothByteOrdersAndResolutions) {
   struct {
      U32 magic;
      std::chrono::nanoseconds fraction;
   } kinds[] = {{0xa1b2c3d4, std::chrono::microseconds(7)}, {0xa1b23c4d, std::chrono::nanoseconds(7)}};
   const std::vector<std::pair<Octets, U32>> frames = {{{1, 2, 3}, 1514}, {{}, 60}, {{4, 5}, 2}};
   for (auto& kind : kinds) {
      for (bool bigEndian : {false, true}) {
         CaptureFile file(bigEndian);
         file.header(kind.magic);
         for (auto& [octets, length] : frames) {
            file.record(static_cast<U32>(octets.size()), length, octets);
         }
         CaptureReader reader(file.write());
         for (auto& [octets, length] : frames) {
            std::optional<CapturedFrame> frame = reader.next();
            ASSERT_TRUE(frame);
            EXPECT_EQ(octets, Octets(frame->bytes.begin(), frame->bytes.end()));
            EXPECT_EQ(length, frame->originalLength);
            EXPECT_EQ(std::chrono::seconds(1000) + kind.fraction, frame->timestamp);
         }
         EXPECT_FALSE(reader.next());
         EXPECT_FALSE(reader.next());
      }
   }
}

TEST(CaptureReader, TakesRecordsLongerThanTheSnapLength) {
   const U32 sizes[] = {262'144, 262'145, CaptureReader::maxRecordLength};
   CaptureFile file;
   file.header();
   for (U32 size : sizes) {
      file.record(size, size, Octets(size, 0x5a));
   }
   CaptureReader reader(file.write());
   for (U32 size : sizes) {
      std::optional<CapturedFrame> frame = reader.next();
      ASSERT_TRUE(frame);
      EXPECT_EQ(size, frame->bytes.size());
      EXPECT_EQ(0x5a, frame->bytes.back());
   }
   EXPECT_FALSE(reader.next());
}

TEST(CaptureReader, TakesOffTheFcsThatTheFileDeclares) {
   struct {
      U32 linkType, captured, original;
      std::size_t expectedCaptured;
      U32 expectedOriginal;
   } cases[] = {
        {0x24000001, 64, 64, 60, 60}, {0x44000001, 64, 64, 60, 60}, {0x24000001, 62, 64, 60, 60},
        {0x24000001, 20, 64, 20, 60}, {0x24000001, 3, 3, 0, 0},     {0x04000001, 64, 64, 64, 64},
        {0x20000001, 64, 64, 64, 64},
   };
   for (auto& c : cases) {
      CaptureFile file;
      file.header(0xa1b2c3d4, c.linkType).record(c.captured, c.original, Octets(c.captured));
      CaptureReader reader(file.write());
      std::optional<CapturedFrame> frame = reader.next();
      ASSERT_TRUE(frame);
      EXPECT_EQ(c.expectedCaptured, frame->bytes.size());
      EXPECT_EQ(c.expectedOriginal, frame->originalLength);
   }
}

TEST(CaptureReader, SaysWhatIsWrongWithTheFile) {
   const std::string good = "d4c3b2a1 0200 0400 00000000 00000000 ffff0000 ";
   struct {
      std::string octets;
      const char* error;
   } cases[] = {
        {"", "the file header is cut off: it has 0 of 24 octets"},
        {"d4c3b2a1 0200", "the file header is cut off: it has 6 of 24 octets"},
        {"0a0d0d0a 1c00",
         "is a pcapng file, expected classic pcap: convert it with 'editcap -F pcap IN OUT'"},
        {"1f8b0800 0000", "is not a pcap file: it begins with 0x1f8b0800"},
        {"d4c3b2a1 0200 0300 00000000 00000000 ffff0000 01000000", "pcap version 2.3 is not supported"},
        {good + "71000000", "has link type 113, expected 1 (Ethernet)"},
        {good + "01000034", "says that its frames end with an FCS of 6 octets, expected none or 4"},
   };
   for (auto& c : cases) {
      CaptureFile file;
      const std::string& path = file.raw(bytes(c.octets)).write();
      EXPECT_THAT(outcome(path), StartsWith(path + ": " + c.error));
   }
   EXPECT_THAT(outcome("/nonexistent/x.pcap"), StartsWith("/nonexistent/x.pcap: cannot be opened: "));
   EXPECT_THAT(outcome(ZelTest::TemporaryFolder().path()), HasSubstr(": cannot be read: "));
}

TEST(CaptureReader, SaysWhichRecordIsWrongAndHow) {
   struct {
      U32 captured, original, held;
      const char* error;
   } cases[] = {
        {60, 60, 59, "the frame is cut off: the file holds 59 of 60 octets"},
        {61, 60, 61, "the record is corrupt: 61 octets captured of a frame of 60"},
        {60, 16'777'217, 60, "the record is corrupt: a frame of 16777217 octets, expected up to 16777216"},
        {0xffffffff, 0xffffffff, 60, "the record is corrupt: a frame of 4294967295 octets"},
   };
   for (auto& c : cases) {
      CaptureFile file;
      file.header().record(60, 60, Octets(60)).record(c.captured, c.original, Octets(c.held));
      const std::string& path = file.write();
      CaptureReader reader(path);
      EXPECT_TRUE(reader.next());
      try {
         reader.next();
         FAIL() << "expected: " << c.error;
      } catch (const CaptureError& error) {
         EXPECT_THAT(error.what(), StartsWith(path + ": record 2: " + c.error));
      }
      EXPECT_FALSE(reader.next());
   }
}

TEST(CaptureReader, NoticesACutAnywhere) {
   CaptureFile file;
   file.header().record(4, 4, Octets(4)).record(5, 5, Octets(5));
   std::filesystem::path path = file.write();
   constexpr std::size_t afterHeader = 24;
   constexpr std::size_t afterFirst = afterHeader + 16 + 4;
   constexpr std::size_t afterSecond = afterFirst + 16 + 5;
   const std::map<std::size_t, std::string> sound = {
        {afterHeader, "0 frames"}, {afterFirst, "1 frames"}, {afterSecond, "2 frames"}};
   for (std::size_t length = afterSecond; length > 0; --length) {
      std::filesystem::resize_file(path, length);
      if (auto found = sound.find(length); found != sound.end()) {
         EXPECT_EQ(found->second, outcome(path));
      } else {
         EXPECT_THAT(outcome(path), HasSubstr("is cut off: ")) << "cut to " << length;
      }
   }
}

// What another program says of these captures, where X is a file:
//   frames, captured octets         capinfos -TMrcd X; tshark -r X -T fields -e frame.len, summed;
//                                   octets are that sum and 4 a frame
//   the others                      tshark -r X -Y FILTER | wc -l, with the filters
//      unicast                      eth.dst.ig#1 == 0
//      multicast                    eth.dst.ig#1 == 1 && !(eth.dst#1 == ff:ff:ff:ff:ff:ff)
//      broadcast                    eth.dst#1 == ff:ff:ff:ff:ff:ff
//      tagged                       eth.type#1 == 0x8100 || eth.type#1 == 0x88a8
//      undersize, oversize          frame.len + 4 < 64, frame.len + 4 > 1518
//      a bucket of LOW to HIGH      frame.len + 4 >= LOW && frame.len + 4 <= HIGH
constexpr std::array sampleCounters = {
     BF_RMON_FRAMES_RECEIVED_ALL,
     BF_RMON_OCTETS_RECEIVED_ALL,
     BF_RMON_UNICAST_FRAMES_RECEIVED_OK,
     BF_RMON_MULTICAST_FRAMES_RECEIVED_OK,
     BF_RMON_BROADCAST_FRAMES_RECEIVED_OK,
     BF_RMON_VLAN_TAGGED_FRAMES_RECEIVED_OK,
     BF_RMON_UNDERSIZE_FRAMES_RECEIVED,
     BF_RMON_OVERSIZE_FRAMES_RECEIVED,
     BF_RMON_FRAMES_RECEIVED_64_OCTETS,
     BF_RMON_FRAMES_RECEIVED_65_TO_127_OCTETS,
     BF_RMON_FRAMES_RECEIVED_128_TO_255_OCTETS,
     BF_RMON_FRAMES_RECEIVED_256_TO_511_OCTETS,
     BF_RMON_FRAMES_RECEIVED_512_TO_1023_OCTETS,
     BF_RMON_FRAMES_RECEIVED_1024_TO_1518_OCTETS,
     BF_RMON_FRAMES_RECEIVED_1519_TO_2047_OCTETS,
     BF_RMON_FRAMES_RECEIVED_2048_TO_4095_OCTETS,
     BF_RMON_FRAMES_RECEIVED_4096_TO_8191_OCTETS,
     BF_RMON_FRAMES_RECEIVED_8192_TO_9215_OCTETS,
     BF_RMON_FRAMES_RECEIVED_9216_OR_MORE_OCTETS,
};
using SampleCounts = std::array<U64, sampleCounters.size()>; // counters that are not listed are 0

const struct {
   const char* file;
   SampleCounts counts;
} samples[] = {
     {"clipped.pcap", {11, 18996, 6, 1, 4, 4, 0, 1, 0, 4, 0, 0, 0, 6, 0, 0, 0, 0, 1}},
     {"destinations.pcap", {21, 2780, 2, 12, 7, 0, 0, 0, 7, 9, 0, 5}},
     {"sizes.pcap", {276, 1223486, 276, 0, 0, 0, 3, 185, 3, 9, 13, 17, 21, 25, 29, 33, 37, 41, 45}},
     {"sources.pcap", {34, 23972, 34, 0, 0, 0, 0, 0, 0, 11, 5, 0, 5, 13}},
     {"tags.pcap", {2, 136, 1, 0, 1, 2, 0, 0, 0, 2}},
     {"vxlan.pcap", {10, 1408, 10, 0, 0, 0, 0, 0, 0, 2, 8}},
};

SampleCounts countSample(const std::filesystem::path& path) {
   std::array<U64, BF_NUM_RMON_COUNTERS> rmon{};
   CaptureReader reader(path);
   while (std::optional<CapturedFrame> frame = reader.next()) {
      countReceived(parseFrame(frame->bytes, frame->originalLength), rmon.data());
   }
   SampleCounts counts{};
   for (std::size_t i = 0; i < counts.size(); ++i) {
      counts[i] = rmon[sampleCounters[i]];
   }
   return counts;
}

TEST(CaptureReplay, CountsAgreeWithAnotherProgram) {
   std::filesystem::path folder = ZEL_CAPTURES;
   for (auto& expected : samples) {
      EXPECT_EQ(expected.counts, countSample(folder / expected.file)) << expected.file;
   }
}

} // namespace
} // namespace SoftChip

// Ports, forwarding and MAC counters of a chip, the memory they live in, and the traffic that moves them.
#include "softchip/CaptureReader.h"
#include "tests/softchip/CaptureFile.h"
#include "tests/softchip/SoftChipRig.h"
#include "tests/support/Files.h"
#include "tests/support/TemporaryFolder.h"

#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>

namespace SoftChip {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;

class SoftwareChip : public ZelTest::SoftChipRig {
 protected:
   SoftwareChip() : chip(addChip()) {
      for (const U16 port : {U16{128}, U16{0}, U16{1}}) {
         chip.portAdd(port);
      }
   }
   std::vector<U64> sent() const {
      std::vector<U64> frames;
      for (const U16 port : chip.ports()) {
         frames.push_back(chip.rmon(port, BF_RMON_FRAMES_TRANSMITTED_ALL));
      }
      return frames;
   }
   Kiln::String file(const char* name) const { return folder.path() + "/" + name; }

   Chip& chip;
   const ZelTest::TemporaryFolder folder;
};

TEST_F(SoftwareChip, FramesGoWhereTheirDestinationWasSeenElseEverywhereElse) {
   ASSERT_THAT(chip.ports(), ElementsAre(0, 1, 128));
   chip.receive(0, frame(0x0b, 0x0a));
   EXPECT_THAT(sent(), ElementsAre(0, 1, 1)) << "unknown: flooded";
   chip.receive(128, frame(0x0a, 0x0b), 5);
   EXPECT_THAT(sent(), ElementsAre(5, 1, 1)) << "learned";
   chip.receive(0, frame(0x0a, 0x0c));
   EXPECT_THAT(sent(), ElementsAre(5, 1, 1)) << "to where it came from";
   chip.receive(1, frame(broadcastMac, 0x0a));
   EXPECT_THAT(sent(), ElementsAre(6, 1, 2));
   chip.receive(128, frame(0x0a, 0x0b));
   EXPECT_THAT(sent(), ElementsAre(6, 2, 2)) << "the station moved";
   chip.receive(1, frame(broadcastMac, 0x0d));
   chip.portDel(1);
   chip.receive(128, frame(0x0a, 0x0b));
   chip.receive(128, frame(0x0d, 0x0b));
   EXPECT_EQ(chip.rmon(0, BF_RMON_FRAMES_TRANSMITTED_ALL), 9U) << "both forgotten with their port";
   EXPECT_FALSE(chip.receive(1, frame(0x0a, 0x0b)));
}

TEST_F(SoftwareChip, BadAndControlFramesAreCountedAndGoNoFurther) {
   FrameInfo bad = frame(broadcastMac, 0x0a);
   bad.fcsError = true;
   chip.receive(0, bad);
   FrameInfo pause = frame(0x0180c2000001, 0x0a);
   pause.macControl = {true, macControlPause, 0};
   chip.receive(0, pause);
   EXPECT_EQ(chip.rmon(0, BF_RMON_FRAMES_RECEIVED_ALL), 2U);
   EXPECT_THAT(sent(), ElementsAre(0, 0, 0));
}

TEST_F(SoftwareChip, FaultsOfACounterShowInWhatTheSdkReads) {
   chip.rmonIs(0, 5, (U64{1} << 32) - 1);
   chip.rmonFlip(0, 5, 40);
   chip.rmonStuckIs(0, BF_RMON_FRAMES_RECEIVED_ALL, true);
   chip.receive(0, frame(broadcastMac, 0x0a), 3);
   bf_rmon_counter_array_t read{};
   chip.readMac(0, read);
   EXPECT_EQ(read[BF_RMON_OCTETS_RECEIVED_ALL], (U64{1} << 40) + (U64{1} << 32) - 1 + 3 * 64);
   EXPECT_EQ(read[BF_RMON_FRAMES_RECEIVED_ALL], 0U);
   EXPECT_EQ(read[BF_RMON_FRAMES_RECEIVED_OK], 3U);
   chip.rmonStuckIs(0, BF_RMON_FRAMES_RECEIVED_ALL, false);
   chip.readMac(0, read);
   EXPECT_EQ(read[BF_RMON_FRAMES_RECEIVED_ALL], 3U);
}

TEST_F(SoftwareChip, BadInputIsRefused) {
   EXPECT_THROW(chip.portAdd(0), std::invalid_argument);
   EXPECT_THROW(chip.portAdd(68), std::invalid_argument);
   EXPECT_THROW(chip.portAdd(256), std::invalid_argument) << "the chip has two pipes";
   EXPECT_THROW(chip.rmonIs(2, 0, 0), std::invalid_argument);
   EXPECT_THROW(chip.rmonIs(0, 89, 0), std::invalid_argument);
   EXPECT_THROW(chip.rmonFlip(0, 0, 64), std::invalid_argument);
   EXPECT_THROW(chip.accessVlanIs(0, 4095), std::invalid_argument);
   EXPECT_THROW(addChip(0), std::invalid_argument);
   EXPECT_THROW(addChip(8), std::invalid_argument);
   EXPECT_THROW(addChip(1, 5), std::invalid_argument);
}

TEST_F(SoftwareChip, ACaptureIsReplayedAsAWholeOrNotAtAll) {
   const auto broadcast = [](std::size_t length) {
      ZelTest::Octets octets(length, 0x02);
      std::fill_n(octets.begin(), 6, U8{0xff});
      return octets;
   };
   ZelTest::CaptureFile capture;
   capture.header().record(60, 60, broadcast(60)).record(64, 1400, broadcast(64));
   const std::string path = capture.write();
   EXPECT_EQ(Traffic::replay(chip, 1, path), 2U);
   EXPECT_EQ(chip.rmon(1, BF_RMON_OCTETS_RECEIVED_ALL), 64U + 1404);
   EXPECT_EQ(chip.rmon(0, BF_RMON_BROADCAST_FRAMES_TRANSMITTED_OK), 2U);
   capture.raw({'c', 'u', 't'}).write();
   EXPECT_THROW(Traffic::replay(chip, 1, path), CaptureError);
   EXPECT_EQ(chip.rmon(1, BF_RMON_FRAMES_RECEIVED_ALL), 2U);
   EXPECT_THROW(Traffic::replay(chip, 2, path), std::invalid_argument);
}

TEST_F(SoftwareChip, TwoChipsHaveTrafficOfTheirOwn) {
   Chip& other = addChip(1);
   other.portAdd(0);
   Traffic traffic(*fleet, Kiln::activityManagerClock(), 7);
   traffic.onIs(true);
   advance(0.75);
   const U64 before = chip.rmon(0, BF_RMON_FRAMES_RECEIVED_ALL);
   traffic.onIs(false);
   EXPECT_GT(chip.rmon(0, BF_RMON_FRAMES_RECEIVED_ALL), before) << "what has arrived until then";
   EXPECT_GT(other.rmon(0, BF_RMON_FRAMES_RECEIVED_ALL), 500U);
   EXPECT_NE(other.rmon(0, BF_RMON_OCTETS_RECEIVED_ALL), chip.rmon(0, BF_RMON_OCTETS_RECEIVED_ALL));
   traffic.onIs(true);
   advance(0.25);
   other.portAdd(1);
   advance(0.5);
   EXPECT_GT(other.rmon(1, BF_RMON_FRAMES_RECEIVED_ALL), 0U);
}

TEST_F(SoftwareChip, AHardwareFileKeepsTheCountersOfEachChipUntilTheChipIsTakenOut) {
   const Kiln::String path = file("hardware");
   for (int start = 0; start < 3; ++start) {
      fleet = nullptr;
      fleet = std::make_unique<Fleet>(path);
      for (const U8 device : {U8{1}, U8{3}}) {
         Chip& each = addChip(device);
         each.portAdd(0);
         each.receive(0, frame(broadcastMac, 0x0a), device);
         const U64 runs = static_cast<U64>(start) + 1;
         EXPECT_EQ(each.rmon(0, BF_RMON_FRAMES_RECEIVED_OK), runs * device);
         EXPECT_EQ(each.tableEntry("l2DmacClassifyCount", allPipes, 1).packets, runs * device);
      }
   }
   fleet->chipDel(3);
   Chip& again = addChip(3, 4);
   again.portAdd(0);
   EXPECT_EQ(again.rmon(0, BF_RMON_FRAMES_RECEIVED_OK), 0U);
   EXPECT_THAT([&] { HardwareMemory second(path); },
               testing::ThrowsMessage<std::runtime_error>(HasSubstr("in use by another agent")));
   fleet = nullptr;

   fleet = std::make_unique<Fleet>(path);
   EXPECT_THAT([&] { addChip(1, 3); },
               testing::ThrowsMessage<std::runtime_error>(HasSubstr("holds device 1 with 2 pipes")));
   EXPECT_EQ(fleet->chip(1U), nullptr);
   fleet = nullptr;
   {
      HardwareMemory memory(path);
      memory.regionIs(5, "8 counters", 8)[0] = 9;
      memory.createdDel();
   }
   EXPECT_EQ(HardwareMemory(path).regionIs(5, "4 counters", 4)[0], 0U)
        << "a start that failed leaves nothing";
}

TEST_F(SoftwareChip, ARestartKeepsPortsAndCountersOrSetsAllCountersToZero) {
   // What each part of the hardware counted: MAC, table, traffic manager, queue's drops, path.
   const auto counts = [&] {
      bf_tm_pipe_counter_t tm{};
      bf_pipe_path_count_t path{};
      U64 drops = 0;
      EXPECT_EQ(chip.readTm(0, BF_TM_PIPE_INGRESS, &tm), 0);
      EXPECT_EQ(chip.readPath(0, BF_PIPE_PATH_PARSER, &path), 0);
      EXPECT_EQ(chip.readDrops(0, 1, 3, &drops), 0);
      return std::vector<U64>{chip.rmon(0, BF_RMON_FRAMES_RECEIVED_OK),
                              chip.tableEntry("l2DmacClassifyCount", allPipes, 1).packets, tm.count, path.in,
                              drops};
   };
   chip.receive(0, frame(broadcastMac, 0x0a), 4);
   chip.queueIs(1, 3, {}, 7);
   const U64 serial = chip.serial();
   fleet->chipRestart(0, true);
   EXPECT_THAT(counts(), ElementsAre(4, 4, 4, 4, 7));
   EXPECT_NE(chip.serial(), serial);
   EXPECT_THAT(chip.ports(), ElementsAre(0, 1, 128));
   fleet->chipRestart(0, false);
   EXPECT_THAT(counts(), ElementsAre(0, 0, 0, 0, 0));
   chip.receive(0, frame(broadcastMac, 0x0a));
   EXPECT_THAT(counts(), ElementsAre(1, 1, 1, 1, 0));
}

TEST_F(SoftwareChip, AForeignFileIsLeftAlone) {
   const Kiln::String foreign = file("foreign");
   std::ofstream(foreign) << Kiln::String(5000, 'x');
   EXPECT_THAT([&] { HardwareMemory memory(foreign); },
               testing::ThrowsMessage<std::runtime_error>(HasSubstr("not a file of hardware counters")));
   EXPECT_EQ(std::filesystem::file_size(foreign), 5000U);
   EXPECT_THROW(HardwareMemory{folder.path()}, std::runtime_error);
}

TEST_F(SoftwareChip, WhatAKillLeftUnsealedInAHardwareFileBeginsAnewAndTheRestStays) {
   constexpr std::size_t version = 8;
   constexpr std::size_t checksum = 592; // the last release's
   constexpr std::size_t seals = 600;
   const Kiln::String path = file("killed");
   // What two chips had counted before this start, which each count some more.
   const auto start = [&] {
      HardwareMemory memory(path);
      std::vector<U64> found;
      for (const U8 device : {U8{0}, U8{3}}) {
         U64& counter = memory.regionIs(device, "8 counters", 8)[0];
         found.push_back(counter);
         counter += device + 1U;
      }
      return found;
   };
   const auto write = [&](const std::string& bytes) {
      std::ofstream(path, std::ios::binary | std::ios::trunc) << bytes;
   };
   EXPECT_THAT(start(), ElementsAre(0, 0));
   EXPECT_THAT(start(), ElementsAre(1, 4));
   const std::string whole = ZelTest::bytesOf(path);
   // Killed before the header was sealed: no page, one of zeros, and all but the magic number.
   for (const std::string& head :
        {std::string(), std::string(16, '\0'), std::string(8, '\0') + whole.substr(8, 8)}) {
      write(head.empty() ? head : head + std::string(4096 - head.size(), '\0'));
      EXPECT_THAT(start(), ElementsAre(0, 0));
      EXPECT_THAT(start(), ElementsAre(1, 4));
   }
   ZelTest::overwrite(path, seals + 3 * sizeof(U64), std::string(sizeof(U64), '\0'));
   EXPECT_THAT(start(), ElementsAre(2, 0)) << "killed before a slot was sealed";

   std::string former = whole;
   former[version] = 1;
   former.replace(seals, 8 * sizeof(U64), 8 * sizeof(U64), '\0');
   U64 sum = 0xcbf29ce484222325;
   for (std::size_t i = 0; i < checksum; ++i) {
      sum = (sum ^ static_cast<unsigned char>(former[i])) * 0x100000001b3;
   }
   former.replace(checksum, sizeof sum, reinterpret_cast<const char*>(&sum), sizeof sum);
   write(former);
   EXPECT_THAT(start(), ElementsAre(2, 8)) << "the last release's file goes on";
   former[checksum] ^= 1;
   write(former);
   EXPECT_THAT(start(), ElementsAre(0, 0)) << "as its kills left it";
}

} // namespace
} // namespace SoftChip

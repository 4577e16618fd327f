// Histories: what readers see while a ring is written, turns over and changes hands, and after kills and restarts.
#include "silo/HistoryReader.h"
#include "silo/HistoryTable.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/Files.h"
#include "tests/support/NoRoom.h"
#include "tests/support/Random.h"
#include "tests/support/TemporaryFolder.h"

#include <algorithm>
#include <csignal>
#include <fcntl.h>
#include <filesystem>
#include <gtest/gtest.h>
#include <unistd.h>

namespace {

using Silo::HistoryOptions;
using Silo::HistorySample;
using Silo::HistoryTable;
using Silo::Key;

constexpr std::size_t fields = 9;
constexpr Silo::RecordLayout layout{"TestHistory", 1, fields * sizeof(std::uint64_t)};
constexpr Silo::HistoryMarks unbroken{0, 0};

// Values that only this sample of this key has, so that words of two samples are never taken for one.
std::vector<std::uint64_t> valuesOf(const Key& key, double time) {
   std::vector<std::uint64_t> values(fields);
   for (std::size_t i = 0; i < fields; ++i) {
      values[i] = key.hash() ^ (static_cast<std::uint64_t>(time) * 0x9e3779b97f4a7c15 + i);
   }
   return values;
}

// Empty if the samples are whole, of this key, in order, each there once, and next to each other but for damage.
std::string problemOf(const std::vector<HistorySample>& samples, const Key& key) {
   double last = -1;
   std::uint64_t lastNumber = 0;
   for (const HistorySample& sample : samples) {
      if (sample.values != valuesOf(key, sample.time)) {
         return "sample " + std::to_string(sample.number) + " is torn or another's";
      }
      if (sample.time <= last || sample.number <= lastNumber) {
         return "sample " + std::to_string(sample.number) + " comes twice or out of order";
      }
      last = sample.time;
      lastNumber = sample.number;
   }
   return "";
}

class History : public testing::Test {
 protected:
   HistoryOptions options(std::size_t depth, std::size_t rings = 64) {
      return {.depth = depth,
              .maxRings = rings,
              .pollingInterval = 1,
              .clockDomain = clock_,
              .onCorruption = [this](const Silo::Corruption& each) { told_.push_back(each.text); }};
   }
   static void write(HistoryTable& table, const Key& key, double time) {
      table.write(key, time, unbroken, valuesOf(key, time));
   }
   // The times of the key's samples.
   std::vector<double> timesOf(const Key& key) {
      Silo::HistoryReader reader(store_, "History", layout);
      std::vector<HistorySample> samples;
      EXPECT_TRUE(reader.read(key, samples)) << reader.problem();
      EXPECT_EQ(problemOf(samples, key), "");
      std::vector<double> times;
      for (const HistorySample& sample : samples) {
         times.push_back(sample.time);
      }
      return times;
   }

   ZelTest::TemporaryFolder folder_;
   Silo::Store store_ = Silo::Store::directory(folder_.path());
   Silo::ClockDomain clock_ = Silo::ClockDomain::monotonic();
   std::vector<std::string> told_;
};

using Times = std::vector<double>;

// The writer dies by SIGKILL again and again in the middle of its work.
TEST_F(History, IsWholeAndInOrderWhileItIsWrittenTurnsOverAndItsWritersAreKilled) {
   constexpr int writers = 8;
   constexpr double ahead = 300; // samples, some twenty turns of the ring
   const std::vector<Key> keys{"Ethernet1", "Ethernet2", "Ethernet3"};
   { const HistoryTable table(store_, "History", layout, options(16)); }
   Silo::HistoryReader reader(store_, "History", layout);
   std::vector<HistorySample> samples;
   std::vector<double> last(keys.size(), 0);
   for (int writer = 0; writer < writers; ++writer) {
      const double begin = 1e9 * (writer + 1); // further than any writer gets
      const pid_t child = ZelTest::spawn([&]() -> int {
         HistoryTable table(store_, "History", layout, options(16));
         for (double time = begin;; ++time) {
            for (const Key& key : keys) {
               write(table, key, time);
            }
         }
      });
      while (!HasFailure() && *std::ranges::min_element(last) < begin + ahead) {
         for (std::size_t i = 0; i < keys.size(); ++i) {
            if (reader.read(keys[i], samples) && !samples.empty()) {
               EXPECT_EQ(problemOf(samples, keys[i]), "");
               EXPECT_LE(samples.size(), 16U);
               // The newest one may be missed in the moment in which its place is taken.
               EXPECT_GE(samples.back().time, last[i] - 1);
               last[i] = std::max(last[i], samples.back().time);
            }
         }
      }
      kill(child, SIGKILL);
      EXPECT_EQ(ZelTest::statusOf(child), -SIGKILL);
   }
   const HistoryTable table(store_, "History", layout, options(16));
   EXPECT_TRUE(told_.empty()) << told_.front();
   EXPECT_GE(timesOf("Ethernet2").size(), 15U) << "a kill costs one sample";
}

TEST_F(History, GoesOnAfterARestartWithAnotherDepthAndKeepsWhatFits) {
   {
      HistoryTable table(store_, "History", layout, options(4));
      for (double time = 1; time <= 6; ++time) {
         write(table, "Ethernet1", time);
      }
      write(table, "Ethernet2", 6);
      EXPECT_EQ(timesOf("Ethernet1"), (Times{3, 4, 5, 6}));
   }
   Silo::HistoryReader reader(store_, "History", layout);
   {
      HistoryTable table(store_, "History", layout, options(6));
      write(table, "Ethernet1", 7);
      EXPECT_EQ(timesOf("Ethernet1"), (Times{3, 4, 5, 6, 7}));
      std::vector<HistorySample> samples;
      ASSERT_TRUE(reader.read("Ethernet1", samples));
      EXPECT_EQ(samples.back().number, 7U) << "a reader follows";
   }
   HistoryTable table(store_, "History", layout, options(2));
   EXPECT_EQ(timesOf("Ethernet1"), (Times{6, 7}));
   EXPECT_EQ(timesOf("Ethernet2"), (Times{6}));
   EXPECT_EQ(table.whyBegunAnew(), "");
   EXPECT_TRUE(told_.empty());
}

TEST_F(History, BeginsAnewOnAnotherClockAndWhereTheFileIsNone) {
   {
      HistoryTable table(store_, "History", layout, options(4));
      write(table, "Ethernet1", 1);
   }
   clock_ = {false, {1, 2}};
   {
      HistoryTable table(store_, "History", layout, options(4));
      EXPECT_EQ(timesOf("Ethernet1"), Times{});
      EXPECT_EQ(table.whyBegunAnew(), "has times of another clock");
      write(table, "Ethernet1", 1);
   }
   EXPECT_TRUE(told_.empty()) << "that is no damage";
   std::filesystem::resize_file(folder_.path() + "/History", 1000);
   HistoryTable table(store_, "History", layout, options(4));
   EXPECT_EQ(told_, std::vector<std::string>{"has a damaged header, or was cut short"});
   EXPECT_EQ(timesOf("Ethernet1"), Times{});
}

TEST_F(History, MarksWhatWasBrokenSinceTheSampleBefore) {
   HistoryTable table(store_, "History", layout, options(8));
   const auto marked = [&](double time, const Silo::HistoryMarks& marks) {
      table.write("Ethernet1", time, marks, valuesOf("Ethernet1", time));
   };
   marked(10, {1, 1});    // a record of long ago
   marked(11, {10.5, 1}); // broken in between
   marked(12, {10.5, 1});
   marked(13, {12, 12}); // began anew in the moment of the sample before, as where time is simulated
   Silo::HistoryReader reader(store_, "History", layout);
   std::vector<HistorySample> samples;
   ASSERT_TRUE(reader.read("Ethernet1", samples));
   std::vector<std::uint64_t> flags;
   for (const HistorySample& sample : samples) {
      flags.push_back(sample.flags);
   }
   using namespace Silo::SampleFlag;
   EXPECT_EQ(flags, (std::vector<std::uint64_t>{0, discontinuity, 0, discontinuity | begun}));
}

// Rings come in banks of sixteen, so that there are 32. Each key that comes gets one as long as there is room, then that
// of the one that is silent the longest.
TEST_F(History, GivesRingsOfSilentKeysAwayOnlyWhenNeeded) {
   HistoryTable table(store_, "History", layout, options(4, 20));
   for (int port = 1; port <= 32; ++port) {
      const std::string name = "Ethernet" + std::to_string(port);
      if (port == 17) { // no room for the second bank, for a while
         {
            const ZelTest::NoRoom noRoom(std::filesystem::file_size(folder_.path() + "/History"));
            EXPECT_THROW(write(table, name, 1), Silo::TableError);
         }
         EXPECT_THROW(write(table, name, 1), Silo::TableError) << "the system is asked once in a pass";
         table.mend();
      }
      write(table, name, 1);
   }
   write(table, "Ethernet2", 3);
   EXPECT_THROW(write(table, "Ethernet33", 3), Silo::CapacityError) << "the others were read just now";
   EXPECT_EQ(timesOf("Ethernet1"), (Times{1}));
   write(table, "Ethernet33", 4.5);
   EXPECT_EQ(timesOf("Ethernet33"), (Times{4.5}));
   std::vector<HistorySample> samples;
   ASSERT_TRUE(Silo::HistoryReader(store_, "History", layout).read("Ethernet33", samples));
   EXPECT_EQ(samples.front().number, 2U) << "no number comes twice in a ring";
   EXPECT_EQ(timesOf("Ethernet2"), (Times{1, 3}));
   write(table, "Ethernet34", 4.5);
   EXPECT_EQ(timesOf("Ethernet34"), (Times{4.5}));
   std::size_t left = 0;
   for (int port = 1; port <= 32; ++port) {
      left += timesOf("Ethernet" + std::to_string(port)).size();
   }
   EXPECT_EQ(left, 31U) << "two went, and Ethernet2 has two";
}

// Whatever is overwritten: samples that are given out are as they were written, and the next polling pass mends the rest.
TEST_F(History, DamageIsLeftOutAndMended) {
   HistoryTable table(store_, "History", layout, options(8));
   const std::vector<Key> keys{"Ethernet1", "Ethernet2"};
   double time = 0;
   const auto writeAll = [&] {
      for (int i = 0; i < 8; ++i) {
         ++time;
         for (const Key& key : keys) {
            write(table, key, time);
         }
      }
   };
   writeAll();
   ZelTest::Random random;
   const std::string path = folder_.path() + "/History";
   const std::size_t size = Silo::HistoryGeometry(layout, 8).sizeFor(2);
   for (int round = 0; round < 300; ++round) {
      const int file = open(path.c_str(), O_RDWR | O_CLOEXEC);
      ASSERT_GE(file, 0);
      const std::uint64_t noise = random.next();
      const auto offset = static_cast<off_t>(random.below(size / 8) * 8);
      EXPECT_EQ(pwrite(file, &noise, sizeof noise, offset), 8);
      close(file);
      try {
         Silo::HistoryReader reader(store_, "History", layout);
         for (const Key& key : keys) {
            std::vector<HistorySample> samples;
            if (reader.read(key, samples)) {
               EXPECT_EQ(problemOf(samples, key), "") << "after 8 bytes at " << offset;
            }
         }
      } catch (const Silo::TableError&) { // a header that says so
      }
      table.mend();
      writeAll();
      for (const Key& key : keys) {
         EXPECT_EQ(timesOf(key).size(), 8U) << "after 8 bytes at " << offset;
      }
   }
   std::filesystem::remove(path);
   table.mend();
   EXPECT_EQ(timesOf("Ethernet1").size(), 8U) << "with the samples that the removed file had";
   const std::size_t heads = Silo::HistoryGeometry::banksOffset;
   ZelTest::overwrite(path, heads + sizeof(Silo::RingHead),
                      ZelTest::bytesOf(path).substr(heads, sizeof(Silo::RingHead)));
   std::vector<Key> found;
   ASSERT_TRUE(Silo::HistoryReader(store_, "History", layout).keys(found));
   EXPECT_EQ(found, std::vector<Key>{"Ethernet1"}) << "once, though two rings have it";
}

} // namespace

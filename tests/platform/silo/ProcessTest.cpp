// Writers and readers that run at the same time, in threads and in processes, and writers that are killed.
#include "kiln/OwnedFd.h"
#include "tests/platform/silo/SiloRig.h"
#include "tests/support/Random.h"

#include <atomic>
#include <chrono>
#include <fcntl.h>
#include <filesystem>
#include <memory>
#include <thread>

namespace {

using namespace ZelTest;
using Silo::ReadResult;
using Silo::RecordSlot;

// The record of a generation. Writers have the records prepared, so that they spend most of their time writing.
constexpr std::uint64_t differentRecords = 64;
Large recordOf(std::uint64_t generation) {
   return Large(generation % differentRecords);
}
std::vector<Large> makeRecords() {
   std::vector<Large> records;
   for (std::uint64_t i = 0; i < differentRecords; ++i) {
      records.push_back(recordOf(i));
   }
   return records;
}

class Processes : public SiloRig {
 protected:
   static std::vector<Silo::Key> makeKeys(std::size_t count) {
      std::vector<Silo::Key> keys;
      for (std::size_t i = 0; i < count; ++i) {
         keys.emplace_back("Ethernet" + std::to_string(i));
      }
      return keys;
   }
};

// Both threads use the same addresses: ThreadSanitizer sees no race between two mappings of a table.
TEST_F(Processes, ASlotGivesWholeRecordsOnlyAndRacesWithNobody) {
   auto memory = std::make_unique<Silo::Word[]>((RecordSlot::strideFor(sizeof(Large)) + 64) / 8);
   void* start = memory.get();
   std::size_t space = RecordSlot::strideFor(sizeof(Large)) + 64;
   auto& slot = *static_cast<RecordSlot*>(std::align(64, space - 64, start, space));
   const std::vector<Silo::Key> keys = makeKeys(2);
   std::atomic<bool> isOver{false};
   std::thread writer([&] {
      std::vector<std::byte> copy(sizeof(Large) + Silo::bytesPerRow);
      for (std::uint64_t n = 1; !isOver; ++n) {
         for (int i = 0; i < 300 && !isOver; ++i) {
            // Gives the reader time to run.
         }
         Large record = recordOf(n);
         Silo::RecordContent content{keys[n % 2], {n, static_cast<double>(n)}, &record, sizeof record};
         slot.write(content, copyWithChecksum(content, copy.data()));
         if (n % 64 == 0) {
            slot.clear();
            std::this_thread::yield();
         }
      }
   });
   constexpr int wanted = 4000 / slowdown;
   int seen = 0;
   for (int i = 0; seen < wanted && i < 1'000'000'000; ++i) {
      Silo::RecordInfo info;
      Large record;
      RecordSlot::State state = slot.tryRead(keys[0], info, &record, sizeof record);
      ASSERT_NE(state, RecordSlot::State::corrupt);
      if (state == RecordSlot::State::changing) {
         std::this_thread::yield(); // the writer may be waiting for this processor
      }
      if (state == RecordSlot::State::whole) {
         ++seen;
         ASSERT_EQ(record, recordOf(info.generation));
         ASSERT_EQ(static_cast<double>(info.generation), info.sampleTime);
         ASSERT_EQ(info.generation % 2, 0u) << "another key's record";
      }
   }
   isOver = true;
   writer.join();
   EXPECT_EQ(seen, wanted);
}

// The reader process. Returns its exit status: 0 if it saw what it should.
int readWholeRecords(const Silo::Store& store, const std::vector<Silo::Key>& keys, int reads) {
   Silo::TableReader<Large> reader(store, "t");
   std::vector<std::uint64_t> last(keys.size(), 0);
   int changes = 0;
   for (int done = 0; done < reads;) {
      std::size_t i = static_cast<std::size_t>(done) % keys.size();
      Silo::Sample<Large> sample;
      ReadResult result = reader.read(keys[i], sample);
      if (result == ReadResult::busy) {
         continue; // on a busy machine the writer may be suspended in the middle of a write
      }
      if (result != ReadResult::ok) {
         return 10 + static_cast<int>(result);
      }
      if (sample.record != recordOf(sample.info.generation)) {
         return 1;
      }
      if (sample.info.generation < last[i]) {
         return 2;
      }
      changes += sample.info.generation > last[i];
      last[i] = sample.info.generation;
      ++done;
   }
   return changes > reads / 1000 ? 0 : 3; // otherwise the writer was not running at the same time
}

TEST_F(Processes, FourReadersSeeNoTornRecordWhileTheWriterRunsFlatOut) {
   constexpr int readsPerReader = 250'000 / slowdown;
   const std::vector<Silo::Key> keys = makeKeys(64);
   Silo::Table<Large> table(store_, "t", Large(), options(keys.size()));
   const std::vector<Large> records = makeRecords();
   std::uint64_t generation = 0;
   auto writeAll = [&] {
      ++generation;
      for (const Silo::Key& key : keys) {
         table.recordIs(key, records[generation % differentRecords], 1.0);
      }
   };
   writeAll();
   std::vector<pid_t> readers;
   for (int i = 0; i < 4; ++i) {
      readers.push_back(spawn([&] { return readWholeRecords(store_, keys, readsPerReader); }));
   }
   while (!readers.empty()) {
      writeAll();
      int status = 0;
      if (pid_t ended = waitpid(-1, &status, WNOHANG); ended > 0) {
         EXPECT_TRUE(WIFEXITED(status));
         EXPECT_EQ(WEXITSTATUS(status), 0);
         std::erase(readers, ended);
      }
   }
}

TEST_F(Processes, AWriterKilledAnywhereLosesNothingAndNoReaderWaits) {
   constexpr int kills = 200 / slowdown;
   Random random;
   const std::vector<Silo::Key> keys = makeKeys(16);
   const std::vector<Large> records = makeRecords();
   std::vector<std::uint64_t> last(keys.size(), 0);
   int torn = 0;

   { Silo::Table<Large> table(store_, "t", Large(), options(keys.size())); }
   Silo::TableReader<Large> reader(store_, "t");
   for (int kill = 0; kill < kills; ++kill) {
      pid_t writer = spawn([&] {
         Silo::Table<Large> table(store_, "t", Large(), options(keys.size()));
         std::vector<std::uint64_t> generations;
         for (const Silo::Key& key : keys) {
            generations.push_back(table.sampleOrDefault(key).info.generation);
         }
         for (;;) {
            for (std::size_t i = 0; i < keys.size(); ++i) {
               table.recordIs(keys[i], records[++generations[i] % differentRecords], 1.0);
            }
         }
         return 0;
      });
      // Waits until the writer has published for a while.
      std::uint64_t until = last[0] + 1 + random.below(3000);
      Silo::Sample<Large> sample;
      while (reader.read(keys[0], sample) != ReadResult::ok || sample.info.generation < until) {
         ASSERT_EQ(waitpid(writer, nullptr, WNOHANG), 0) << "the writer ended by itself";
         std::this_thread::yield();
      }
      ::kill(writer, SIGKILL);
      ASSERT_EQ(statusOf(writer), -SIGKILL);

      for (std::size_t i = 0; i < keys.size(); ++i) {
         auto start = std::chrono::steady_clock::now();
         ReadResult result = reader.read(keys[i], sample);
         ASSERT_LT(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(100));
         torn += result == ReadResult::torn;
         if (result != ReadResult::torn) {
            ASSERT_EQ(result, ReadResult::ok) << text(result);
            ASSERT_EQ(sample.record, recordOf(sample.info.generation));
         }
      }
      corruptions_.clear();
      Silo::Table<Large> table(store_, "t", Large(), options(keys.size()));
      for (const Silo::Corruption& corruption : corruptions_) {
         ASSERT_TRUE(corruption.remedy == Silo::Corruption::Remedy::finished ||
                     corruption.remedy == Silo::Corruption::Remedy::kept)
              << corruption.key << ": " << corruption.text;
      }
      ASSERT_LE(corruptions_.size(), 1u);
      for (std::size_t i = 0; i < keys.size(); ++i) {
         Silo::Sample<Large> kept = table.sample(keys[i]);
         ASSERT_EQ(kept.record, recordOf(kept.info.generation));
         ASSERT_GE(kept.info.generation, last[i]);
         last[i] = kept.info.generation;
      }
      ASSERT_GE(last[0], until);
   }
   EXPECT_GT(torn, 0) << "no kill hit a record half-written";
}

// The lock of a reader, which anybody can hold, keeps no writer away and lets no two in.
TEST_F(Processes, OneOfSeveralWritersGetsATableThatIsNewOrThatAReaderLocks) {
   constexpr int writers = 4;
   for (int round = 0; round < 60; ++round) {
      struct flock lock {};
      lock.l_type = F_RDLCK;
      const Kiln::OwnedFd reader(open(fileOf("t").c_str(), O_RDONLY | O_CLOEXEC));
      ASSERT_TRUE(round == 0 || fcntl(reader.fd(), F_OFD_SETLK, &lock) == 0);
      std::atomic<int> waiting{writers};
      std::atomic<int> conflicts{0};
      std::vector<std::unique_ptr<Silo::Table<Small>>> tables(writers);
      std::vector<std::thread> starts;
      for (auto& table : tables) {
         starts.emplace_back([&] {
            --waiting;
            while (waiting > 0) {
               std::this_thread::yield();
            }
            try {
               table = std::make_unique<Silo::Table<Small>>(
                    store_, "t", Small(), Silo::TableOptions{4, 2.0, Silo::ClockDomain::monotonic(), {}});
            } catch (const Silo::WriterConflict&) {
               ++conflicts;
            }
         });
      }
      for (std::thread& one : starts) {
         one.join();
      }
      ASSERT_EQ(conflicts, writers - 1) << "round " << round;
      const auto found = std::ranges::find_if(tables, [](const auto& one) { return one != nullptr; });
      Silo::Sample<Small> kept = (*found)->sampleOrDefault("a");
      ASSERT_EQ(kept.record.number(), static_cast<std::uint64_t>(round));
      (*found)->recordIs("a", Small(static_cast<std::uint64_t>(round) + 1), 1.0);
      ASSERT_EQ(Silo::TableReader<Small>(store_, "t").read("a", kept), ReadResult::ok);
      const auto files = std::distance(std::filesystem::directory_iterator(folder_.path()), {});
      ASSERT_EQ(files, 1) << "something was left beside the table";
   }
}

} // namespace

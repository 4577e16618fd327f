// Tables that were overwritten, cut short or left half-written: nobody crashes, and nobody takes damage for data.
#include "kiln/MappedFault.h"
#include "tests/platform/silo/SiloRig.h"
#include "tests/support/NoRoom.h"

#include <csignal>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <functional>
#include <set>
#include <sys/mman.h>

namespace {

using namespace ZelTest;
using Silo::ReadResult;
using Remedy = Silo::Corruption::Remedy;

class Damage : public SiloRig {
 protected:
   // Writes records "a", "b" and "c" into the first three of four slots, and closes the table.
   std::string makeTable() {
      Silo::Table<Small> table(store_, "t", Small(99), options());
      for (std::uint64_t i = 0; i < keys.size(); ++i) {
         table.recordIs(keys[i], Small(i), 1.0);
      }
      return bytesOf(fileOf("t"));
   }

   void write(const std::string& bytes) const {
      std::ofstream(fileOf("t"), std::ios::binary | std::ios::trunc) << bytes;
   }

   void expectNoNonsenseFromReader() {
      try {
         Silo::TableReader<Small> reader(store_, "t");
         for (std::uint64_t i = 0; i < keys.size(); ++i) {
            Silo::Sample<Small> sample;
            if (reader.read(keys[i], sample) == ReadResult::ok) {
               ASSERT_EQ(sample.record, Small(i));
               ASSERT_EQ(sample.info.generation, 1u);
               ASSERT_EQ(sample.info.sampleTime, 1.0);
            } else {
               ASSERT_EQ(sample.record, Small());
            }
         }
         std::vector<Silo::Entry<Small>> entries;
         ASSERT_TRUE(reader.snapshot(entries));
         std::size_t whole = 0;
         for (const auto& entry : entries) {
            whole += entry.result == ReadResult::ok;
            ASSERT_TRUE(entry.result != ReadResult::ok || entry.sample.record.isWhole());
         }
         ASSERT_GE(whole, keys.size() - 1);
      } catch (const Silo::TableError& error) {
         ASSERT_NE(std::string(error.what()).find("table t (" + folder_.path()), std::string::npos)
              << error.what();
      }
   }

   // Expects that after a restart each record is intact, or reported and begun anew, and that the table works.
   void expectNoNonsenseFromWriter() {
      corruptions_.clear();
      Silo::Table<Small> table(store_, "t", Small(99), options());
      std::set<std::string> reported;
      for (const Silo::Corruption& corruption : corruptions_) {
         ASSERT_FALSE(corruption.text.empty());
         ASSERT_NE(corruption.remedy, Remedy::recreated);
         reported.insert(corruption.key);
      }
      for (std::uint64_t i = 0; i < keys.size(); ++i) {
         Silo::Sample<Small> sample = table.sampleOrDefault(keys[i]);
         if (sample.record != Small(i) || sample.info.generation != 1) {
            ASSERT_EQ(sample.record, Small(99));
            ASSERT_TRUE(reported.contains(keys[i]) || reported.contains("")) << keys[i];
         }
         table.recordIs(keys[i], Small(i + 10), 2.0);
         ASSERT_EQ(table.sample(keys[i]).record, Small(i + 10));
         ASSERT_GT(table.sample(keys[i]).info.generation, 1u) << keys[i];
      }
   }

   const std::vector<std::string> keys{"a", "b", "c"};
};

TEST_F(Damage, AFlippedBitInAnyByteIsFoundByReaderAndWriter) {
   const std::string whole = makeTable();
   for (std::size_t i = 0; i < whole.size(); ++i) {
      SCOPED_TRACE("byte " + std::to_string(i));
      std::string damaged = whole;
      damaged[i] = static_cast<char>(damaged[i] ^ 1 << i % 8);
      write(damaged);
      ASSERT_NO_FATAL_FAILURE(expectNoNonsenseFromReader());
      ASSERT_NO_FATAL_FAILURE(expectNoNonsenseFromWriter());
   }
}

TEST_F(Damage, AnOverwrittenHeaderLosesNoRecord) {
   const std::string whole = makeTable();
   for (const auto& [size, with] : {std::pair{8u, '\0'}, {128u, '\0'}, {256u, '\0'}, {256u, '\x05'}}) {
      write(std::string(size, with) + whole.substr(size));
      corruptions_.clear();
      Silo::Table<Small> table(store_, "t", Small(99), options());
      EXPECT_FALSE(corruptions_.empty());
      Silo::Sample<Small> sample;
      EXPECT_EQ(Silo::TableReader<Small>(store_, "t").read("a", sample), ReadResult::ok) << size;
      for (std::uint64_t i = 0; i < keys.size(); ++i) {
         EXPECT_EQ(table.sample(keys[i]).record, Small(i)) << size;
         EXPECT_EQ(table.sample(keys[i]).info.generation, 1u) << size;
      }
   }
}

TEST_F(Damage, AFileOfAnyLengthIsFoundByReaderAndWriter) {
   const std::string whole = makeTable();
   for (std::size_t size = 0; size < whole.size(); size += 40) {
      SCOPED_TRACE("size " + std::to_string(size));
      write(whole.substr(0, size));
      EXPECT_THROW(Silo::TableReader<Small>(store_, "t"), Silo::TableError);
      corruptions_.clear();
      Silo::Table<Small> table(store_, "t", Small(99), options());
      EXPECT_TRUE(size == 0 || !corruptions_.empty());
      EXPECT_EQ(table.capacity(), 4u);
      for (std::uint64_t i = 0; i < keys.size(); ++i) {
         EXPECT_EQ(table.has(keys[i]), slotOffset<Small>(i + 1) <= size) << keys[i];
      }
   }
}

TEST_F(Damage, AReaderWaitsForALivingWriterButNotForADeadOne) {
   std::optional<Silo::Table<Small>> table;
   table.emplace(store_, "t", Small(99), options());
   table->recordIs("a", Small(1), 1.0);
   table->recordIs("b", Small(2), 1.0);
   Silo::TableReader<Small> reader(store_, "t");
   overwrite(fileOf("t"), slotOffset<Small>(0), "\x05"); // an odd sequence: the record is being written

   auto start = std::chrono::steady_clock::now();
   Silo::Sample<Small> sample;
   EXPECT_EQ(reader.read("a", sample), ReadResult::busy);
   std::vector<Silo::Entry<Small>> entries;
   EXPECT_TRUE(reader.snapshot(entries));
   EXPECT_EQ(reader.read("b", sample), ReadResult::ok);
   EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(200)); // twice 100 ms
   ASSERT_EQ(entries.size(), 2u);
   EXPECT_EQ(entries[0].key, Silo::Key("a"));
   EXPECT_EQ(entries[0].result, ReadResult::busy);
   EXPECT_EQ(entries[1].result, ReadResult::ok);

   table.reset();
   EXPECT_EQ(reader.read("a", sample), ReadResult::torn);
   EXPECT_EQ(reader.read("b", sample), ReadResult::ok);

   // Only the sequence is damaged; the checksum proves that the rest is intact.
   table.emplace(store_, "t", Small(99), options());
   ASSERT_EQ(corruptions_.size(), 1u);
   EXPECT_EQ(corruptions_[0].key, "a");
   EXPECT_EQ(corruptions_[0].remedy, Remedy::kept);
   EXPECT_EQ(reader.read("a", sample), ReadResult::ok);
   EXPECT_EQ(sample.record, Small(1));
}

TEST_F(Damage, ARestartCompletesTheLastRecordAndBeginsOthersAnew) {
   makeTable();
   // "c" was written last, so the journal holds it. Repairing "a" must not lose it.
   for (std::size_t slot : {0u, 2u}) {
      overwrite(fileOf("t"), slotOffset<Small>(slot), "\x05");
      overwrite(fileOf("t"), slotOffset<Small>(slot) + payloadOffset, "garbage");
   }
   Silo::Table<Small> table(store_, "t", Small(99), options());
   ASSERT_EQ(corruptions_.size(), 2u);
   EXPECT_EQ(corruptions_[0].table, "t");
   EXPECT_EQ(corruptions_[0].key, "c");
   EXPECT_EQ(corruptions_[0].remedy, Remedy::finished);
   EXPECT_EQ(corruptions_[1].key, "a");
   EXPECT_EQ(corruptions_[1].remedy, Remedy::restarted);
   EXPECT_EQ(table.sample("a").record, Small(99));
   EXPECT_EQ(table.sample("a").info.sampleTime, Silo::unknownSampleTime);
   EXPECT_EQ(table.sample("a").info.generation, 2u) << "beyond that of all records";
   EXPECT_EQ(table.sample("b").record, Small(1));
   EXPECT_EQ(table.sample("c").record, Small(2));
   EXPECT_EQ(table.sample("c").info.sampleTime, 1.0);
}

TEST_F(Damage, GenerationsRiseWhateverBecomesOfTheirHighestOnes) {
   // At the end of the header's state, and zero in tables of earlier releases.
   const std::size_t offset = 208;
   const std::string intact = "\x09" + std::string(7, '\0') + "\x04" + std::string(7, '\0');
   for (const std::string& words : {intact, std::string(16, '\0'), std::string(16, '\xff')}) {
      store_.remove("t");
      {
         Silo::Table<Small> table(store_, "t", Small(99), options());
         for (int i = 0; i < 9; ++i) {
            table.recordIs(i < 4 ? "removed" : "a", Small(), 1.0);
         }
         for (int i = 0; i < 4; ++i) {
            table.recordIs("a", Small(), 1.0);
         }
         table.recordIs("b", Small(), 1.0);
         table.recordIs("c", Small(), 1.0); // the journal has this one
         table.recordDel("removed");
      }
      ASSERT_EQ(bytesOf(fileOf("t")).substr(offset, 16), intact);
      overwrite(fileOf("t"), offset, words);
      overwrite(fileOf("t"), slotOffset<Small>(2) + payloadOffset, "garbage"); // of "b"
      Silo::Table<Small> table(store_, "t", Small(99), options());
      EXPECT_EQ(table.sample("b").record, Small(99));
      EXPECT_EQ(table.sample("b").info.generation, 10u) << "one more than the highest";
      table.recordDel("a");
      table.recordIs("a", Small(), 1.0);
      EXPECT_EQ(table.sample("a").info.generation, 10u);
   }
}

TEST_F(Damage, AKilledDeletionBringsNothingBack) {
   {
      Silo::Table<Small> table(store_, "t", Small(99), options());
      table.recordIs("a", Small(1), 1.0);
      table.recordDel("a");
   }
   overwrite(fileOf("t"), slotOffset<Small>(0), "\x05"); // as if killed just before the end of the write
   Silo::Table<Small> table(store_, "t", Small(99), options());
   EXPECT_FALSE(table.has("a"));
   ASSERT_EQ(corruptions_.size(), 1u);
   EXPECT_EQ(corruptions_[0].remedy, Remedy::freed);
}

TEST_F(Damage, TheWritersOwnReadFindsDamageAndEveryReadReportsIt) {
   Silo::Table<Small> table(store_, "t", Small(99), options());
   table.recordIs("a", Small(1), 1.0);
   overwrite(fileOf("t"), slotOffset<Small>(0) + payloadOffset + 9, "!");
   try {
      table.sample("a");
      FAIL();
   } catch (const Silo::CorruptionError& error) {
      EXPECT_EQ(error.corruption().table, "t");
      EXPECT_EQ(error.corruption().key, "a");
   }
   EXPECT_TRUE(corruptions_.empty());
   EXPECT_EQ(table.sampleOrDefault("a").record, Small(99));
   EXPECT_EQ(table.sampleOrDefault("a").record, Small(99));
   EXPECT_EQ(corruptions_.size(), 2u);
   Silo::TableReader<Small> reader(store_, "t");
   Silo::Sample<Small> sample;
   EXPECT_EQ(reader.read("a", sample), ReadResult::corrupt);

   overwrite(fileOf("t"), slotOffset<Small>(0),
             std::string(Silo::RecordSlot::strideFor(sizeof(Small)), '\xff'));
   Silo::TableReader<Small> late(store_, "t");
   EXPECT_NE(late.read("a", sample), ReadResult::ok);
   table.recordIs("a", Small(2), 2.0);
   EXPECT_EQ(table.sample("a").record, Small(2));
   EXPECT_EQ(table.sample("a").info.generation, 2u);
   EXPECT_EQ(late.read("a", sample), ReadResult::ok);
   EXPECT_EQ(reader.read("a", sample), ReadResult::ok);
   EXPECT_EQ(corruptions_.size(), 2u);

   // The later words of a key, which the writer does not look at when it writes the record again.
   table.recordIs("a longer key", Small(3), 2.0);
   overwrite(fileOf("t"), slotOffset<Small>(1) + payloadOffset - 56, "!");
   EXPECT_NE(late.read("a longer key", sample), ReadResult::ok);
   table.recordIs("a longer key", Small(4), 2.0);
   EXPECT_EQ(late.read("a longer key", sample), ReadResult::ok);
}

TEST_F(Damage, FlippedBitsAtTheTopsOfTwoWordsAreFound) {
   Silo::Table<Large> table(store_, "large", Large(), options());
   Silo::TableReader<Large> reader(store_, "large");
   Silo::Sample<Large> sample;
   const auto flip = [&](std::size_t word) {
      const std::size_t top = slotOffset<Large>(0) + payloadOffset + 8 * word + 7;
      overwrite(fileOf("large"), top,
                std::string(1, static_cast<char>(bytesOf(fileOf("large"))[top] ^ 0x80)));
   };
   for (std::size_t other = 1; other < sizeof(Large) / 8; ++other) {
      table.recordIs("a", Large(other), 1.0);
      flip(0);
      flip(other);
      // Only two rows apart, and by multiples of that, does one lane's damage cancel out.
      EXPECT_EQ(reader.read("a", sample), other % 8 == 0 ? ReadResult::ok : ReadResult::corrupt) << other;
   }
}

// What somebody may do to the file of a table whose writer is running.
struct Loss {
   const char* found; // a part of the report
   std::function<void(const std::string& file)> inflict;
   std::size_t left; // records that are there again before they are written
};

class LostTable : public SiloRig {
 protected:
   static constexpr std::size_t count = 100; // several pages of slots
   static constexpr const char* last = "99"; // the key in the last slot

   LostTable() { Kiln::surviveMappedFaults(); }
   ~LostTable() override { std::signal(SIGBUS, SIG_DFL); }

   void writeAll(std::uint64_t number) {
      for (std::size_t i = 0; i < count; ++i) {
         table.recordIs(std::to_string(i), Small(number + i), 1.0);
      }
   }
   std::size_t mend() {
      corruptions_.clear();
      table.mend();
      return corruptions_.size();
   }

   Silo::Table<Small> table{store_, "t", Small(99), options(count)};
};

TEST_F(LostTable, IsNoticedReportedOnceAndMadeAnewForReadersToo) {
   const auto cutTo = [](std::size_t size) {
      return [size](const std::string& file) { std::filesystem::resize_file(file, size); };
   };
   const Loss losses[] = {
        {"was removed", [](const std::string& file) { std::filesystem::remove(file); }, count},
        {"was removed", [](const std::string& file) { std::filesystem::rename(file, file + ".moved"); },
         count},
        {"was replaced by another file",
         [](const std::string& file) {
            std::ofstream(file + ".other") << "other";
            std::filesystem::rename(file + ".other", file);
         },
         count},
        {"was cut to 0 of", cutTo(0), 0},
        {"was cut to 5000 of", cutTo(5000), 23},
        {"had its header overwritten",
         [](const std::string& file) { overwrite(file, 0, std::string(8, '\0')); }, count},
        {"had its header overwritten", [](const std::string& file) { overwrite(file, 170, "!"); }, count},
        {"had its header overwritten",
         [](const std::string& file) { overwrite(file, 0, std::string(19648, '\0')); }, 1},
   };
   writeAll(0);
   Silo::TableReader<Small> reader(store_, "t");
   std::uint64_t number = 0;
   for (const Loss& loss : losses) {
      SCOPED_TRACE(loss.found + std::to_string(number));
      Silo::Sample<Small> before;
      ASSERT_EQ(reader.read(last, before), ReadResult::ok);
      loss.inflict(fileOf("t"));
      table.recordIs(last, Small(number), 1.0); // into the void, where the file was cut
      ASSERT_EQ(mend(), 1u);
      EXPECT_EQ(corruptions_[0].remedy, Remedy::remade);
      EXPECT_NE(corruptions_[0].text.find(loss.found), std::string::npos) << corruptions_[0].text;
      EXPECT_EQ(mend(), 0u);
      std::vector<Silo::Entry<Small>> entries;
      ASSERT_TRUE(reader.snapshot(entries)) << reader.problem();
      EXPECT_EQ(entries.size(), loss.left);
      for (const auto& entry : entries) {
         EXPECT_EQ(entry.result, ReadResult::ok);
      }
      number += 1000;
      writeAll(number);
      EXPECT_EQ(mend(), 0u);
      for (std::size_t i = 0; i < count; ++i) {
         Silo::Sample<Small> sample;
         ASSERT_EQ(reader.read(std::to_string(i), sample), ReadResult::ok) << i;
         EXPECT_EQ(sample.record, Small(number + i));
         EXPECT_TRUE(std::to_string(i) != last || sample.info.generation == before.info.generation + 2);
      }
   }
   EXPECT_EQ(table.losses(), std::size(losses));
   EXPECT_FALSE(std::filesystem::exists(fileOf("t~")));
}

TEST_F(LostTable, WhoseNameAnotherWriterTookIsReportedOnceAndWonBack) {
   writeAll(0);
   std::filesystem::remove(fileOf("t"));
   std::optional<Silo::Table<Small>> other;
   other.emplace(store_, "t", Small(99), options());
   ASSERT_EQ(mend(), 1u);
   EXPECT_EQ(corruptions_[0].remedy, Remedy::lost);
   EXPECT_NE(corruptions_[0].text.find("already has a writer"), std::string::npos) << corruptions_[0].text;
   EXPECT_EQ(mend(), 0u);
   other->recordIs("theirs", Small(1), 1.0);
   EXPECT_EQ(other->sample("theirs").record, Small(1));
   other.reset();
   ASSERT_EQ(mend(), 1u);
   EXPECT_EQ(corruptions_[0].remedy, Remedy::remade);

   std::filesystem::remove(fileOf("t"));
   {
      const NoRoom noRoom(4096);
      ASSERT_EQ(mend(), 1u) << "it was whole in between";
      EXPECT_EQ(corruptions_[0].remedy, Remedy::lost);
      EXPECT_FALSE(std::filesystem::exists(fileOf("t~"))) << "what is left of the room is others'";
   }
   ASSERT_EQ(mend(), 1u);
   EXPECT_EQ(corruptions_[0].remedy, Remedy::remade);
   Silo::TableReader<Small> reader(store_, "t");
   Silo::Sample<Small> sample;
   EXPECT_EQ(reader.read(last, sample), ReadResult::ok);
}

TEST_F(LostTable, ThatWasCutUnderAReaderIsNamedAndNotRead) {
   writeAll(0);
   for (const std::size_t size : {0u, 5000u}) {
      Silo::TableReader<Small> reader(store_, "t");
      Silo::TableReader<Small> other(store_, "t");
      Silo::TableReader<Small> early(store_, "t"); // it reads what is left only
      Silo::Sample<Small> sample;
      std::vector<Silo::Entry<Small>> entries;
      ASSERT_EQ(reader.read(last, sample), ReadResult::ok);
      ASSERT_EQ(early.read("0", sample), ReadResult::ok);
      ASSERT_TRUE(other.snapshot(entries));
      std::filesystem::resize_file(fileOf("t"), size);
      EXPECT_EQ(reader.read(last, sample), ReadResult::unavailable);
      EXPECT_FALSE(other.snapshot(entries));
      for (const auto& problem : {reader.problem(), other.problem()}) {
         EXPECT_NE(problem.find("table t (" + fileOf("t")), std::string::npos) << problem;
         EXPECT_NE(problem.find(size == 0 ? "too short" : "cut short"), std::string::npos) << problem;
      }
      table.recordIs(last, Small(1), 1.0); // into the void
      table.mend();
      writeAll(size + 1);
      EXPECT_EQ(reader.read(last, sample), ReadResult::ok);
      EXPECT_EQ(early.read("0", sample), ReadResult::ok);
      EXPECT_EQ(sample.record, Small(size + 1));
   }
}

TEST_F(LostTable, OverwrittenRecordsAreReportedOnceWhoeverWritesThem) {
   writeAll(0);
   EXPECT_EQ(mend(), 0u);
   Silo::TableReader<Small> reader(store_, "t");
   Silo::Sample<Small> sample;
   // In one record the payload, of others also the keys.
   overwrite(fileOf("t"), slotOffset<Small>(99) + payloadOffset + 9, "!");
   overwrite(fileOf("t"), slotOffset<Small>(10),
             std::string(slotOffset<Small>(20) - slotOffset<Small>(10), '\0'));
   ASSERT_EQ(mend(), 1u);
   EXPECT_EQ(corruptions_[0].key, "10");
   EXPECT_NE(corruptions_[0].text.find("10 more"), std::string::npos) << corruptions_[0].text;
   EXPECT_EQ(mend(), 0u);
   EXPECT_FALSE(table.isIntact("10"));
   EXPECT_EQ(table.sampleOrDefault("10").record, Small(99));
   EXPECT_EQ(corruptions_.size(), 0u);
   EXPECT_EQ(reader.read("10", sample), ReadResult::absent);
   writeAll(1);
   EXPECT_TRUE(table.isIntact("10"));
   EXPECT_EQ(reader.read("10", sample), ReadResult::ok) << "its key is found again";
   EXPECT_EQ(mend(), 0u);
}

TEST_F(LostTable, RestingRecordsAreLookedAtInTurns) {
   Silo::TableOptions options = this->options(count);
   options.restingLooks = 30;
   Silo::Table<Small> resting(store_, "resting", Small(99), options);
   for (std::size_t i = 0; i < count; ++i) {
      resting.recordIs(std::to_string(i), Small(i), 1.0);
   }
   resting.mend();
   overwrite(fileOf("resting"), slotOffset<Small>(50) + payloadOffset + 9, "!");
   for (int look = 0; look < 4; ++look) {
      resting.mend();
   }
   ASSERT_EQ(corruptions_.size(), 1u);
   EXPECT_EQ(corruptions_[0].key, "50");
}

TEST_F(LostTable, SlotsWithoutARecordAreFreeAgainAndTheModeIsAsBefore) {
   writeAll(0);
   table.recordDel("50");
   overwrite(fileOf("t"), slotOffset<Small>(50), std::string(sizeof(Silo::RecordSlot), '\xff'));
   ASSERT_EQ(chmod(fileOf("t").c_str(), 0666), 0);
   std::vector<Remedy> found;
   for (int look = 0; look < 40; ++look) { // twice as many as it takes to see all slots
      mend();
      for (const auto& corruption : corruptions_) {
         found.push_back(corruption.remedy);
      }
   }
   EXPECT_EQ(found, (std::vector{Remedy::modeMended, Remedy::freed}));
   EXPECT_EQ(std::filesystem::status(fileOf("t")).permissions(), std::filesystem::perms(0644));
   Silo::TableReader<Small> reader(store_, "t");
   std::vector<Silo::Entry<Small>> entries;
   ASSERT_TRUE(reader.snapshot(entries));
   EXPECT_EQ(entries.size(), count - 1);
}

TEST_F(LostTable, NoOtherBusErrorIsOutlived) {
   EXPECT_EQ(statusOf(spawn([] { return std::raise(SIGBUS); })), -SIGBUS);
   EXPECT_EQ(statusOf(spawn([&] {
                // Not announced, so nobody knows what its user could do without it.
                std::ofstream(fileOf("other")) << std::string(8192, ' ');
                const int file = open(fileOf("other").c_str(), O_RDWR | O_CLOEXEC);
                void* const data = mmap(nullptr, 8192, PROT_READ, MAP_SHARED, file, 0);
                std::filesystem::resize_file(fileOf("other"), 0);
                return data == MAP_FAILED ? 1 : *static_cast<volatile const char*>(data) * 0;
             })),
             -SIGBUS);
}

} // namespace

// Tables without damage: what is written is read, across restarts, growth and replacement.
#include "tests/platform/silo/SiloRig.h"
#include "tests/support/Random.h"

#include <filesystem>
#include <fstream>
#include <list>
#include <map>
#include <sys/stat.h>

namespace {

using namespace ZelTest;
using Silo::ReadResult;

class Table : public SiloRig {};

// Compares everything that the writer and a reader see with the oracle.
void expectSame(const std::map<std::string, std::uint64_t>& oracle, Silo::Table<Small>& table,
                Silo::TableReader<Small>& reader) {
   ASSERT_EQ(table.size(), oracle.size());
   std::vector<Silo::Entry<Small>> entries;
   ASSERT_TRUE(reader.snapshot(entries)) << reader.problem();
   ASSERT_EQ(entries.size(), oracle.size());
   for (const auto& entry : entries) {
      auto expected = oracle.find(std::string(entry.key.view()));
      ASSERT_NE(expected, oracle.end()) << entry.key.view();
      ASSERT_EQ(entry.result, ReadResult::ok);
      ASSERT_EQ(entry.sample.record, Small(expected->second));
      ASSERT_EQ(table.sample(entry.key).record, Small(expected->second));
   }
}

TEST_F(Table, AgreesWithAMapThroughWritesDeletesAndRestarts) {
   Random random;
   std::map<std::string, std::uint64_t> oracle;
   std::map<std::string, std::uint64_t> generations; // of all keys that there ever were
   std::optional<Silo::Table<Small>> table;
   std::size_t capacity = 6;
   table.emplace(store_, "t", Small(), options(capacity));
   Silo::TableReader<Small> reader(store_, "t");
   for (std::uint64_t step = 0; step < 100'000 / slowdown; ++step) {
      std::string key = "k" + std::to_string(random.below(12));
      switch (random.below(8)) {
      case 0:
      case 1:
      case 2:
         if (oracle.size() == capacity && !oracle.contains(key)) {
            ASSERT_THROW(table->recordIs(key, Small(step), 1.0), Silo::CapacityError);
         } else {
            table->recordIs(key, Small(step), 1.0);
            oracle[key] = step;
            const std::uint64_t generation = table->sample(key).info.generation;
            ASSERT_GT(generation, generations[key]) << key;
            generations[key] = generation;
         }
         break;
      case 3:
      case 4:
         table->recordDel(key);
         oracle.erase(key);
         break;
      case 5:
         if (random.oneIn(100)) {
            if (random.oneIn(2)) { // what was lost is there again, with all that was known of removed ones
               store_.remove("t");
               table->mend();
               ASSERT_EQ(corruptions_.size(), 1u);
               corruptions_.clear();
            }
            table.reset();
            const std::size_t asked = 4 + random.below(6);
            capacity = std::max(capacity, asked);
            table.emplace(store_, "t", Small(), options(asked));
         }
         break;
      default: {
         Silo::Sample<Small> sample;
         ReadResult result = reader.read(key, sample);
         auto expected = oracle.find(key);
         ASSERT_EQ(result, expected == oracle.end() ? ReadResult::absent : ReadResult::ok) << key;
         ASSERT_EQ(sample.record, Small(expected == oracle.end() ? 0 : expected->second));
      }
      }
      if (random.oneIn(50)) {
         ASSERT_NO_FATAL_FAILURE(expectSame(oracle, *table, reader));
      }
   }
   EXPECT_TRUE(corruptions_.empty());
}

TEST_F(Table, AFullTableNamesItselfAndLosesNothing) {
   Silo::Table<Small> table(store_, "counters", Small(), options(2));
   table.recordIs("a", Small(1), 1.0);
   table.recordIs("b", Small(2), 1.0);
   EXPECT_THAT(
        [&] { table.recordIs("c", Small(3), 1.0); },
        testing::ThrowsMessage<Silo::CapacityError>(
             "table counters (" + folder_.path() +
             "/counters) is full: it holds 2 records and has no room for \"c\"; start its writer with a "
             "greater capacity, the records stay"));
   EXPECT_EQ(table.sample("a").record, Small(1));
   table.recordDel("b");
   table.recordIs("c", Small(3), 1.0);
   EXPECT_EQ(table.sample("c").record, Small(3));
}

TEST_F(Table, ARestartKeepsGenerationAndSampleTimeAndMayGrow) {
   {
      Silo::Table<Small> table(store_, "t", Small(), options(1));
      table.recordIs("a", Small(1), 1.5);
      table.recordIs("a", Small(2), 3.5);
   }
   Silo::TableReader<Small> reader(store_, "t");
   EXPECT_FALSE(reader.isWriterAlive());
   Silo::Table<Small> table(store_, "t", Small(), options(3));
   EXPECT_EQ(table.capacity(), 3u);
   table.recordIs("b", Small(7), 4.0);

   EXPECT_TRUE(reader.isWriterAlive());
   EXPECT_EQ(reader.state().epoch, 2u);
   EXPECT_EQ(reader.state().writerPid, getpid());
   EXPECT_EQ(reader.state().pollingInterval, 2.0);
   Silo::Sample<Small> sample;
   ASSERT_EQ(reader.read("a", sample), ReadResult::ok);
   EXPECT_EQ(sample.record, Small(2));
   EXPECT_EQ(sample.info.generation, 2u);
   EXPECT_EQ(reader.age(sample.info, 10.0, Silo::ClockDomain::monotonic()), 6.5);
   EXPECT_EQ(reader.age(sample.info, 3.4995, Silo::ClockDomain::monotonic()), 0.0) << "the clock's rounding";
   EXPECT_EQ(reader.age(sample.info, 3.49, Silo::ClockDomain::monotonic()), std::nullopt) << "yet to come";
   EXPECT_EQ(reader.read("b", sample), ReadResult::ok);
   table.pollingIntervalIs(0.5);
   EXPECT_EQ(reader.state().pollingInterval, 0.5);
}

TEST_F(Table, ANewKeyCountsFromOneUntilAnotherWasRemoved) {
   Silo::Table<Small> table(store_, "t", Small(), options());
   auto generationOf = [&table](const char* key) {
      table.recordIs(key, Small(), 1.0);
      return table.sample(key).info.generation;
   };
   EXPECT_EQ(generationOf("a"), 1u);
   EXPECT_EQ(generationOf("a"), 2u);
   EXPECT_EQ(generationOf("a"), 3u);
   EXPECT_EQ(generationOf("b"), 1u);
   table.recordDel("b");
   EXPECT_EQ(generationOf("c"), 2u);
   EXPECT_EQ(generationOf("b"), 2u);
}

TEST_F(Table, SampleTimesOfAnotherClockMeanNothingAfterARestart) {
   {
      Silo::Table<Small> table(store_, "t", Small(), options());
      table.recordIs("a", Small(1), 1.5);
   }
   Silo::TableOptions simulated = options();
   simulated.clockDomain = Silo::ClockDomain::simulatedTime();
   {
      Silo::Table<Small> table(store_, "t", Small(), simulated);
      Silo::Sample<Small> sample = table.sample("a");
      EXPECT_EQ(sample.record, Small(1));
      EXPECT_EQ(sample.info.generation, 1u);
      EXPECT_EQ(sample.info.sampleTime, Silo::unknownSampleTime);
      table.recordIs("a", Small(2), 2.5);
   }
   // In the same process the simulated clock is the same.
   Silo::Table<Small> table(store_, "t", Small(), simulated);
   EXPECT_EQ(table.sample("a").info.sampleTime, 2.5);
   Silo::TableReader<Small> reader(store_, "t");
   EXPECT_FALSE(reader.age({1, 2.5}, 10.0, Silo::ClockDomain::monotonic()));
}

TEST_F(Table, ATableBegunAnewHasNoRecords) {
   {
      Silo::Table<Small> table(store_, "t", Small(), options());
      table.recordIs("a", Small(1), 1.0);
   }
   Silo::TableOptions anew = options();
   anew.isBegunAnew = true;
   Silo::Table<Small> table(store_, "t", Small(), anew);
   EXPECT_EQ(table.size(), 0u);
   Silo::Sample<Small> sample;
   EXPECT_EQ(Silo::TableReader<Small>(store_, "t").read("a", sample), ReadResult::absent);
}

TEST_F(Table, ASecondWriterIsToldWhoHasTheTable) {
   Silo::Table<Small> table(store_, "t", Small(), options());
   table.recordIs("a", Small(1), 1.0);
   EXPECT_EQ(statusOf(spawn([this] {
                try {
                   Silo::Table<Small> other(store_, "t", Small(), options());
                   return 1;
                } catch (const Silo::WriterConflict& error) {
                   const std::string expected = "table t (" + fileOf("t") +
                                                ") already has a writer, process " +
                                                std::to_string(getppid()) +
                                                ": stop that one first, or use another place for the tables";
                   return error.holder() == getppid() && error.what() == expected ? 0 : 2;
                }
             })),
             0);
   EXPECT_THROW(Silo::Table<Small>(store_, "t", Small(), options()), Silo::WriterConflict);
   EXPECT_EQ(table.sample("a").record, Small(1));
}

TEST_F(Table, AReaderFollowsATableOfAnotherLayoutAndBack) {
   using Other = Pattern<46>;
   {
      Silo::Table<Small> table(store_, "t", Small(), options());
      table.recordIs("a", Small(1), 1.0);
   }
   Silo::TableReader<Small> reader(store_, "t");
   Silo::Sample<Small> sample;
   ASSERT_EQ(reader.read("a", sample), ReadResult::ok);
   { Silo::Table<Other> table(store_, "t", Other(), options()); }
   ASSERT_EQ(corruptions_.size(), 1u);
   EXPECT_EQ(corruptions_[0].remedy, Silo::Corruption::Remedy::recreated);

   EXPECT_EQ(reader.read("a", sample), ReadResult::unavailable);
   EXPECT_EQ(sample.record, Small());
   EXPECT_EQ(reader.problem(), "table t (" + folder_.path() +
                                    "/t) holds records \"Pattern\" version 1 of 46 bytes, expected records "
                                    "\"Pattern\" version 1 of 45 bytes");
   Silo::Table<Small> table(store_, "t", Small(), options());
   EXPECT_EQ(reader.read("a", sample), ReadResult::absent);
   EXPECT_EQ(reader.problem(), "");
   table.recordIs("a", Small(2), 1.0);
   ASSERT_EQ(reader.read("a", sample), ReadResult::ok);
   EXPECT_EQ(sample.record, Small(2));
}

TEST_F(Table, AReaderNoticesThatTheFileWasRemovedByHand) {
   std::list<Silo::Table<Small>> tables; // a writer whose file was removed does not know
   tables.emplace_back(store_, "t", Small(), options()).recordIs("a", Small(1), 1.0);
   Silo::TableReader<Small> reader(store_, "t");
   Silo::Sample<Small> sample;
   ASSERT_EQ(reader.read("a", sample), ReadResult::ok);
   for (const std::uint64_t number : {2u, 3u}) {
      store_.remove("t");
      tables.emplace_back(store_, "t", Small(), options()).recordIs("a", Small(number), 1.0);
      for (int i = 0; i < 300 && sample.record != Small(number); ++i) {
         ASSERT_EQ(reader.read("a", sample), ReadResult::ok);
      }
      EXPECT_EQ(sample.record, Small(number));
   }
   std::ofstream(fileOf("t~")) << "a killed writer's";
   store_.remove("t");
   EXPECT_FALSE(std::filesystem::exists(fileOf("t~")));
   std::vector<Silo::Entry<Small>> entries(3);
   EXPECT_FALSE(reader.snapshot(entries));
   EXPECT_TRUE(entries.empty());
   EXPECT_NE(reader.problem().find("No such file"), std::string::npos) << reader.problem();
}

TEST_F(Table, SharedMemoryServesAReaderWithoutWritePermission) {
   if (geteuid() != 0) {
      GTEST_SKIP() << "only root can be somebody else";
   }
   Silo::Store shared = Silo::Store::sharedMemory("silo-test-" + std::to_string(getpid()));
   {
      mode_t mask = umask(0077); // must not shut the readers out
      Silo::Table<Small> table(shared, "t", Small(), options());
      umask(mask);
      table.recordIs("a", Small(1), 1.0);
      EXPECT_EQ(statusOf(spawn([&shared, this] {
                   if (setgid(65534) != 0 || setuid(65534) != 0) {
                      return 1;
                   }
                   Silo::Sample<Small> sample;
                   if (Silo::TableReader<Small>(shared, "t").read("a", sample) != ReadResult::ok ||
                       sample.record != Small(1)) {
                      return 2;
                   }
                   try {
                      Silo::Table<Small> mine(shared, "t", Small(), options());
                      return 3;
                   } catch (const Silo::TableError&) {
                      return 0;
                   }
                })),
                0);
   }
   shared.remove("t");
   EXPECT_THROW(Silo::TableReader<Small>(shared, "t"), Silo::TableError);
}

TEST_F(Table, RefusesInvalidArguments) {
   Silo::Table<Small> table(store_, "t", Small(), options());
   EXPECT_THROW(table.recordIs("", Small(), 1.0), std::invalid_argument);
   EXPECT_THROW(table.recordIs(std::string(64, 'x'), Small(), 1.0), std::invalid_argument);
   EXPECT_THROW(table.recordIs("a\nb", Small(), 1.0), std::invalid_argument);
   EXPECT_THROW(table.recordIs(Silo::Key(), Small(), 1.0), std::invalid_argument);
   EXPECT_THROW(table.recordIs("a", Small(), std::nan("")), std::invalid_argument);
   EXPECT_THROW(table.pollingIntervalIs(0), std::invalid_argument);
   EXPECT_THROW(table.sample("a"), Silo::AbsentRecord);
   EXPECT_EQ(table.size(), 0u);
   table.recordIs(std::string(63, 'x'), Small(5), 1.0);
   EXPECT_EQ(table.sample(std::string(63, 'x')).record, Small(5));

   EXPECT_THROW(Silo::Table<Small>(store_, "u", Small(), options(0)), std::invalid_argument);
   for (const char* name : {"", ".hidden", "a/b", "../t", "a b"}) {
      EXPECT_THROW(Silo::Table<Small>(store_, name, Small(), options()), Silo::TableError) << name;
   }
   EXPECT_THROW(Silo::Store::directory(folder_.path() + "/absent"), Silo::TableError);
   std::filesystem::create_symlink(fileOf("t"), fileOf("link"));
   EXPECT_THROW(Silo::Table<Small>(store_, "link", Small(), options()), Silo::TableError);
}

} // namespace

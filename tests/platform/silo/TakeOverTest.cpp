// Tables of a former layout: a writer takes them over, whatever happens on the way.
#include "tests/platform/silo/SiloRig.h"

#include <csignal>
#include <filesystem>

namespace {

using namespace ZelTest;
using Silo::ReadResult;

using Former = Small;
struct Today : Large {
   static constexpr std::uint32_t layoutVersion = 2;
   using Pattern::Pattern;
};

int conversionsToKill = -1; // none
Today upgraded(const Former& former) {
   if (conversionsToKill >= 0 && conversionsToKill-- == 0) {
      raise(SIGKILL);
   }
   return Today(former.number());
}

class TakeOver : public SiloRig {
 protected:
   // Leaves a table of four former records: each of its key's number, generation and sample time.
   void leaveFormer(const Silo::Store& store) {
      Silo::Table<Former> table(store, "t", Former(), options(6));
      for (std::uint64_t number : numbers) {
         for (std::uint64_t i = 0; i < number; ++i) {
            table.recordIs(std::to_string(number), Former(number), static_cast<double>(number));
         }
      }
      table.recordIs("gone", Former(), 1.0);
      table.recordDel("gone");
   }

   std::unique_ptr<Silo::Table<Today>> open(const Silo::Store& store, std::size_t capacity = 4) {
      return std::make_unique<Silo::Table<Today>>(store, "t", Today(), options(capacity), upgraded);
   }

   template <class Record, class Source>
   static void expectAll(Source get) {
      for (std::uint64_t number : numbers) {
         const Silo::Sample<Record> sample = get(std::to_string(number));
         EXPECT_EQ(sample.record, Record(number));
         EXPECT_EQ(sample.info.generation, number);
         EXPECT_EQ(sample.info.sampleTime, static_cast<double>(number));
      }
   }
   template <class Record>
   static void expectAll(Silo::TableReader<Record>& reader) {
      expectAll<Record>([&reader](const std::string& key) {
         Silo::Sample<Record> sample;
         EXPECT_EQ(reader.read(key, sample), ReadResult::ok) << reader.problem();
         return sample;
      });
   }

   static constexpr std::uint64_t numbers[] = {3, 11, 5, 7};
};

TEST_F(TakeOver, KeepsRecordsAndSendsReadersToTheNewTable) {
   const Silo::Store memory = Silo::Store::sharedMemory("silo-take-over-" + std::to_string(getpid()));
   for (const Silo::Store& store : {store_, memory}) {
      SCOPED_TRACE(store.describe("t"));
      corruptions_.clear();
      leaveFormer(store);
      Silo::TableReader<Former> former(store, "t");
      EXPECT_THROW(Silo::TableReader<Today>(store, "t"), Silo::TableError);
      {
         const auto table = open(store);
         ASSERT_EQ(corruptions_.size(), 1u);
         EXPECT_EQ(corruptions_[0].remedy, Silo::Corruption::Remedy::takenOver);
         EXPECT_EQ(corruptions_[0].text, "has records of layout version 1");
         EXPECT_EQ(table->capacity(), 6u);
         expectAll<Today>([&table](const std::string& key) { return table->sample(key); });

         Silo::Sample<Former> old;
         EXPECT_EQ(former.read("3", old), ReadResult::unavailable);
         Silo::TableReader<Today> reader(store, "t");
         expectAll(reader);
         EXPECT_TRUE(reader.isWriterAlive());
         EXPECT_EQ(reader.state().epoch, 2u);
         EXPECT_THROW(open(store), Silo::WriterConflict);
         // Removals of former times still count.
         table->recordIs("gone", Today(), 1.0);
         EXPECT_EQ(table->sample("gone").info.generation, 2u);
      }
      corruptions_.clear();
      EXPECT_EQ(open(store, 9)->capacity(), 9u);
      EXPECT_TRUE(corruptions_.empty());
   }
   memory.remove("t");
}

TEST_F(TakeOver, AKillAtAnyPointLosesNothing) {
   constexpr int records = std::size(numbers);
   for (int point = 0; point <= records; ++point) {
      SCOPED_TRACE("killed at point " + std::to_string(point));
      store_.remove("t");
      leaveFormer(store_);
      const pid_t writer = spawn([this, point] {
         conversionsToKill = point;
         Silo::TableOptions killed = options();
         // The last point is behind the last conversion: the new table has just got its name.
         killed.onCorruption = [](const Silo::Corruption&) { raise(SIGKILL); };
         Silo::Table<Today> table(store_, "t", Today(), killed, upgraded);
         return 0;
      });
      ASSERT_EQ(statusOf(writer), -SIGKILL);
      EXPECT_EQ(std::filesystem::exists(fileOf("t~")), point < records);
      if (point < records) {
         Silo::TableReader<Former> reader(store_, "t");
         expectAll(reader);
      } else {
         Silo::TableReader<Today> reader(store_, "t");
         expectAll(reader);
      }
      corruptions_.clear();
      const auto table = open(store_);
      expectAll<Today>([&table](const std::string& key) { return table->sample(key); });
      EXPECT_EQ(corruptions_.size(), point < records ? 1u : 0u);
      EXPECT_FALSE(std::filesystem::exists(fileOf("t~")));
   }
}

TEST_F(TakeOver, WithoutRoomForTheNewTableTheOldOneStays) {
   leaveFormer(store_);
   std::filesystem::create_directory(fileOf("t~")); // in the way of the new table
   EXPECT_THAT([this] { open(store_); },
               testing::ThrowsMessage<Silo::TableError>("can't create a successor of table t (" +
                                                        fileOf("t") + "): File exists"));
   Silo::TableReader<Former> reader(store_, "t");
   expectAll(reader);
}

} // namespace

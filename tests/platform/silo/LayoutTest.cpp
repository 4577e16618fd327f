// The bytes of a table's file, taken apart by the tables of docs/published-records.md instead of by the code, as a reader
// in another language does. Whoever changes the layout has to change the document, and the format's version.
#include "tests/platform/silo/SiloRig.h"
#include "tests/support/Manual.h"
#include "tests/support/Random.h"

#include <map>
#include <optional>
#include <sstream>
#include <unistd.h>

namespace {

using namespace ZelTest;
using Words = std::vector<std::uint64_t>;
// By name: a part's fields, or their bytes.
using Bytes = std::map<std::string, std::string>;

constexpr const char* document = "published-records.md";

struct Record {
   static constexpr std::string_view layoutName = "LayoutTest";
   static constexpr std::uint32_t layoutVersion = 8;
   std::array<char, 45> text{};
};
constexpr std::size_t paddedSize = 64; // P in the document

std::string bytesOfWord(std::uint64_t word) {
   return {reinterpret_cast<const char*>(&word), sizeof word};
}

std::string bytesOfDouble(double value) {
   return bytesOfWord(std::bit_cast<std::uint64_t>(value));
}

std::string filledUp(std::string text, std::size_t size) {
   text.resize(size, '\0');
   return text;
}

Words wordsOf(const std::string& bytes) {
   Words words(bytes.size() / sizeof(std::uint64_t));
   std::memcpy(words.data(), bytes.data(), words.size() * sizeof(std::uint64_t));
   return words;
}

// "128", "P" or "128 + P".
std::size_t sizeIn(const std::string& cell, std::size_t p) {
   return (cell == "P" ? 0 : std::stoul(cell)) + (cell.ends_with("P") ? p : 0);
}

std::uint64_t documentedHash(const std::string& key) {
   std::uint64_t hash = 0;
   for (const std::uint64_t word : wordsOf(filledUp(key, 64))) {
      hash = (hash ^ word) * 0x9e3779b97f4a7c15;
      hash ^= hash >> 32;
   }
   return hash;
}

struct Checksums {
   std::uint64_t first = 0;
   std::uint64_t second = 0;
};

Checksums documentedChecksums(const Words& words) {
   const auto lanes = manualRows(document, "### Hash and checksum");
   constexpr std::uint64_t weight = 0x452821e638d01377;
   const auto multiplier = [&](std::size_t lane) { return std::stoull(lanes[lane][2], nullptr, 16); };
   Checksums checksums;
   for (std::size_t lane = 0; lane < lanes.size(); ++lane) {
      std::uint64_t word = std::stoull(lanes[lane][1], nullptr, 16);
      std::uint64_t sum = 0;
      for (std::size_t i = lane; i < words.size(); i += lanes.size()) {
         word += words[i];
         sum += word;
      }
      checksums.first ^= (word + 2 * weight * sum) * multiplier(lane);
      checksums.second += (word >> 32 | word << 32) * multiplier(lane);
      checksums.second += (sum >> 32 | sum << 32) * multiplier(3 - lane);
   }
   checksums.second |= 1;
   return checksums;
}

std::uint64_t documentedChecksum(const Words& words) {
   return documentedChecksums(words).first;
}

// The header's way: each word begins a row of its own.
std::uint64_t documentedHeaderChecksum(const Words& words) {
   Words rows;
   for (const std::uint64_t word : words) {
      rows.insert(rows.end(), {word, 0, 0, 0});
   }
   return documentedChecksum(rows);
}

// A table in which no two numbers are equal that could be mistaken for each other.
class Layout : public SiloRig {
 protected:
   Layout() {
      record_.text.fill('x');
      for (int start = 1; start < epoch; ++start) {
         Silo::Table<Record> table(store_, "t", Record{}, options());
      }
      table_.emplace(store_, "t", Record{}, options());
      for (const char* key : {"Ethernet3", "Ethernet2", "Ethernet1"}) {
         table_->recordIs(key, Record{}, 1);
      }
      for (int generation = 2; generation <= removedGeneration; ++generation) {
         table_->recordIs("Ethernet2", record_, 1);
      }
      table_->recordDel("Ethernet2");
      for (int generation = 2; generation <= highestGeneration; ++generation) {
         table_->recordIs("Ethernet1", record_, sampleTime);
      }
      file_ = bytesOf(fileOf("t"));
   }

   static Silo::TableOptions options() { return {5, 2.5, {true, {11, 12}}, {}, false}; }

   // The documented fields of the part that begins at this offset. All its other bytes must be zeros.
   Bytes fieldsAt(std::size_t begin, const std::string& heading) const {
      Bytes fields;
      std::size_t end = 0;
      for (const auto& row : manualRows(document, heading)) {
         const std::size_t offset = sizeIn(row[0], paddedSize);
         EXPECT_EQ(file_.substr(begin + end, offset - end), std::string(offset - end, '\0'))
              << "before " << row[3];
         end = offset + sizeIn(row[1], paddedSize);
         fields[row[3]] = file_.substr(begin + offset, end - offset);
      }
      return fields;
   }

   std::string payload() const { return filledUp({record_.text.data(), record_.text.size()}, paddedSize); }
   // What the document says of the record that was written last.
   Checksums checksums() const {
      Words words{highestGeneration, std::bit_cast<std::uint64_t>(sampleTime), documentedHash("Ethernet1"),
                  0};
      const Words rows = wordsOf(payload());
      words.insert(words.end(), rows.begin(), rows.end());
      return documentedChecksums(words);
   }

   static constexpr int epoch = 7;
   static constexpr int removedGeneration = 4;
   static constexpr int highestGeneration = 9;
   static constexpr double sampleTime = 12.5;
   static constexpr std::size_t slot = 2; // of Ethernet1

   Record record_;
   std::optional<Silo::Table<Record>> table_;
   std::string file_;
};

TEST_F(Layout, OfTheHeaderIsTheDocumentedOne) {
   const Words name = wordsOf(filledUp("LayoutTest", 32));
   const Words state{5,  epoch, static_cast<std::uint64_t>(getpid()), std::bit_cast<std::uint64_t>(2.5), 1,
                     11, 12};
   const Bytes expected{
        {"magic", "ILOTABLE"},
        {"formatVersion", bytesOfWord(2)},
        {"layoutName", filledUp("LayoutTest", 32)},
        {"layoutVersion", bytesOfWord(8)},
        {"recordSize", bytesOfWord(45)},
        {"identityChecksum",
         bytesOfWord(documentedHeaderChecksum({name[0], name[1], name[2], name[3], 2, 8, 45}))},
        {"stateSequence", bytesOfWord(2 * (2 * epoch - 1))}, // every start but the last one has an end, too
        {"directoryVersion", bytesOfWord(3)},
        {"stateChecksum", bytesOfWord(documentedHeaderChecksum(state))},
        {"capacity", bytesOfWord(state[0])},
        {"epoch", bytesOfWord(state[1])},
        {"writerPid", bytesOfWord(state[2])},
        {"pollingInterval", bytesOfWord(state[3])},
        {"isSimulated", bytesOfWord(state[4])},
        {"clockId", bytesOfWord(11) + bytesOfWord(12)},
        {"highestGeneration", bytesOfWord(highestGeneration)},
        {"removedGeneration", bytesOfWord(removedGeneration)},
   };
   EXPECT_EQ(fieldsAt(0, "### Header"), expected);
   EXPECT_EQ(wordsOf("ILOTABLE")[0], 0x454c4241544f4c49u) << "the document gives it as a number, too";
}

TEST_F(Layout, OfASlotIsTheDocumentedOne) {
   const Bytes expected{
        {"sequence", bytesOfWord(2 * highestGeneration)},
        {"checksum", bytesOfWord(checksums().first)},
        {"generation", bytesOfWord(highestGeneration)},
        {"sampleTime", bytesOfDouble(sampleTime)},
        {"keyHash", bytesOfWord(documentedHash("Ethernet1"))},
        {"secondChecksum", bytesOfWord(checksums().second)},
        {"key", filledUp("Ethernet1", 64)},
        {"payload", payload()},
   };
   EXPECT_EQ(fieldsAt(slotOffset<Record>(slot), "### Slot"), expected);
   const std::string removed = fieldsAt(slotOffset<Record>(1), "### Slot")["key"];
   EXPECT_EQ(removed, std::string(64, '\0')) << "a free slot";
}

TEST_F(Layout, OfTheJournalIsTheDocumentedOne) {
   const Bytes expected{
        {"slot", bytesOfWord(slot + 1)},
        {"seal", bytesOfWord(checksums().first ^ (slot + 1) * 0x9e3779b97f4a7c15)},
        {"generation", bytesOfWord(highestGeneration)},
        {"sampleTime", bytesOfDouble(sampleTime)},
        {"key", filledUp("Ethernet1", 64)},
        {"payload", payload()},
   };
   EXPECT_EQ(fieldsAt(sizeof(Silo::TableHeader), "### Journal"), expected);
}

TEST_F(Layout, OfAFileIsTheDocumentedOneForAnySizeOfRecord) {
   const auto parts = manualRows(document, "### Files");
   ASSERT_EQ(parts.size(), 3u);
   for (const std::size_t size : {1u, 63u, 64u, 65u, 136u, 1952u}) {
      const std::size_t p = (size + 63) / 64 * 64;
      const Silo::TableGeometry geometry({"any", 1, size});
      EXPECT_EQ(sizeIn(parts[0][1], p), sizeof(Silo::TableHeader));
      EXPECT_EQ(sizeIn(parts[1][0], p), geometry.journalOffset);
      EXPECT_EQ(sizeIn(parts[1][1], p), geometry.slotsOffset - geometry.journalOffset);
      EXPECT_EQ(sizeIn(parts[2][0], p), geometry.slotsOffset);
      EXPECT_EQ(sizeIn(parts[2][1], p), geometry.slotStride);
   }
   EXPECT_EQ(file_.size(), 384 + paddedSize + 5 * (128 + paddedSize));
}

TEST(Checksum, IsTheDocumentedOneForAnyRows) {
   Random random;
   Silo::Checksum<std::uint64_t> checksum;
   Words words;
   EXPECT_EQ(documentedChecksum(words), checksum.value());
   for (int row = 0; row < 64; ++row) {
      const std::uint64_t added[] = {random.next(), random.next(), random.next(), random.next()};
      checksum.add(added);
      words.insert(words.end(), std::begin(added), std::end(added));
      ASSERT_EQ(documentedChecksum(words), checksum.value()) << row;
      ASSERT_EQ(documentedChecksums(words).second, checksum.second()) << row;
   }
   for (const char* key : {"a", "Ethernet1", "a key that is longer than a single word, and has blanks"}) {
      EXPECT_EQ(documentedHash(key), Silo::Key(key).hash());
   }
}

TEST(Checksum, AndHashHaveTheDocumentedExamples) {
   const std::string text = manual(document);
   const auto hex = [](std::uint64_t word) {
      std::ostringstream out;
      out << "0x" << std::hex << word;
      return out.str();
   };
   for (const std::uint64_t example :
        {Silo::Key("Ethernet1").hash(), documentedChecksum({}), documentedChecksum({1, 2, 3, 4}),
         documentedChecksum({1, 2, 3, 4, 5, 6, 7, 8}), documentedChecksums({1, 2, 3, 4}).second}) {
      EXPECT_NE(text.find(hex(example)), text.npos) << hex(example);
   }
}

} // namespace

// A shared table's or history's file, of any bytes: its readers end, say why they can't read, and believe no wrong record.
//
// The first letter says what the input is: "t" a table's whole file, "h" a history's; "T" and "H" damage to a good one of
// several records, of ten bytes each: two for an offset, in words, and eight for what stands there then. Readers that came
// before the damage and after it are tried.
#include "silo/HistoryReader.h"
#include "silo/HistoryTable.h"
#include "silo/Table.h"
#include "silo/TableReader.h"
#include "tests/fuzz/Fuzz.h"
#include "tests/support/Files.h"
#include "tests/support/TemporaryFolder.h"

#include <cstring>
#include <fstream>

using Kiln::String;
using ZelFuzz::must;

namespace {

struct Twice { // a record of which each half is known by the other
   static constexpr std::string_view layoutName = "Twice";
   static constexpr std::uint32_t layoutVersion = 1;
   std::uint64_t number = 0;
   std::uint64_t complement = ~std::uint64_t{0};
   bool isWhole() const { return complement == ~number; }
};

constexpr std::size_t fields = 2;
constexpr Silo::RecordLayout historyLayout{"Twice", 1, fields * sizeof(std::uint64_t)};
constexpr std::size_t depth = 4;
constexpr const char* keys[] = {"Ethernet1", "Ethernet2", "Ethernet3.100"};

// Good files, and the folder of those that are damaged.
struct World {
   World() {
      Silo::Table<Twice> table(store, "table", {}, {3, 2.0, Silo::ClockDomain::monotonic(), {}});
      Silo::HistoryTable history(store, "history", historyLayout,
                                 {.depth = depth,
                                  .maxRings = 16,
                                  .pollingInterval = 1,
                                  .clockDomain = Silo::ClockDomain::monotonic(),
                                  .onCorruption = {}});
      for (std::uint64_t i = 1; i <= depth + 2; ++i) {
         for (const char* const key : keys) {
            table.recordIs(key, {i, ~i}, static_cast<double>(i));
            const std::uint64_t values[fields] = {i, ~i};
            history.write(key, static_cast<double>(i), {0, 0}, values);
         }
      }
      tableImage = ZelTest::bytesOf(folder.path() + "/table");
      historyImage = ZelTest::bytesOf(folder.path() + "/history");
   }

   const ZelTest::TemporaryFolder folder;
   const Silo::Store store = Silo::Store::directory(folder.path());
   String tableImage;
   String historyImage;
};

World& world() {
   static World one;
   return one;
}

// Writes into the file that is there, which readers have mapped; a new length is another file.
void fill(const char* name, const String& image) {
   const String path = world().folder.path() + "/" + name;
   if (ZelTest::bytesOf(path).size() == image.size()) {
      ZelTest::overwrite(path, 0, image);
      return;
   }
   const String fresh = path + ".fresh";
   std::ofstream(fresh, std::ios::binary).write(image.data(), static_cast<std::streamsize>(image.size()));
   std::rename(fresh.c_str(), path.c_str());
}

// `isForged`: the input may hold whole records of its own, whose checksums are right. One damaged word can't.
void tryTable(Silo::TableReader<Twice>& reader, std::size_t size, bool isForged) {
   std::vector<Silo::Entry<Twice>> entries;
   if (!reader.snapshot(entries)) {
      must(!reader.problem().empty(), "an unavailable table has a problem");
   }
   must(entries.size() * sizeof(Twice) <= size, "a snapshot holds no more than the file");
   for (const auto& entry : entries) {
      must(entry.result != Silo::ReadResult::ok || entry.key.isValid(), "a whole record has a valid key");
      must(entry.sample.record.isWhole() || isForged, "a record is whole or the default");
   }
   for (const char* const key : keys) {
      Silo::Sample<Twice> sample;
      const Silo::ReadResult result = reader.read(key, sample);
      must(result != Silo::ReadResult::unavailable || !reader.problem().empty(),
           "an unavailable table has a problem");
      must(sample.record.isWhole() || isForged, "a record is whole or the default");
      must(result == Silo::ReadResult::ok || sample.info.generation == 0, "what is not read is the default");
   }
}

void tryHistory(Silo::HistoryReader& reader, std::size_t size, bool isForged) {
   std::vector<Silo::Key> found;
   if (!reader.keys(found)) {
      must(!reader.problem().empty(), "an unavailable history has a problem");
      found.clear();
   }
   must(found.size() * sizeof(Silo::RingHead) <= size, "there are no more keys than the file has rings");
   found.insert(found.end(), std::begin(keys), std::end(keys));
   std::vector<Silo::HistorySample> samples;
   for (const Silo::Key& key : found) {
      must(key.isValid(), "a key of a history is valid");
      if (!reader.read(key, samples)) {
         must(!reader.problem().empty(), "an unavailable history has a problem");
         continue;
      }
      must(samples.size() * Silo::HistorySlot::strideFor(fields) <= size, "samples fit into the file");
      std::uint64_t last = 0;
      for (const Silo::HistorySample& sample : samples) {
         must(sample.number > last, "each sample comes once, oldest first");
         last = sample.number;
         must(sample.values.size() == fields, "a sample has all values");
         must(sample.values[1] == ~sample.values[0] || isForged, "a sample is whole");
      }
   }
}

constexpr std::size_t step = sizeof(U16) + sizeof(U64);

String damaged(String image, std::string_view damage) {
   for (; damage.size() >= step; damage.remove_prefix(step)) {
      const std::size_t word = static_cast<U8>(damage[0]) * 256U + static_cast<U8>(damage[1]);
      const std::size_t at = word * sizeof(U64) % (image.size() - sizeof(U64));
      std::memcpy(image.data() + at, damage.data() + sizeof(U16), sizeof(U64));
   }
   return image;
}

template <class Reader, class Try, class... Layout>
void tryFile(const char* name, const String& good, std::string_view input, bool isWhole, Try attempt,
             const Layout&... layout) {
   fill(name, good);
   Reader before(world().store, name, layout...);
   attempt(before, good.size(), false);
   const bool isForged = isWhole || input.size() >= 2 * step;
   const String image = isWhole ? String(input) : damaged(good, input);
   fill(name, image);
   attempt(before, std::max(good.size(), image.size()), isForged);
   ZelFuzz::isTaken<Silo::TableError>([&] {
      Reader after(world().store, name, layout...);
      attempt(after, image.size(), isForged);
   });
}

} // namespace

int LLVMFuzzerTestOneInput(const U8* data, std::size_t size) {
   const std::string_view input = ZelFuzz::textOf(data, size);
   if (input.empty()) {
      return 0;
   }
   const bool isWhole = input[0] >= 'a';
   if ((input[0] | 0x20) == 'h') {
      tryFile<Silo::HistoryReader>("history", world().historyImage, input.substr(1), isWhole, tryHistory,
                                   historyLayout);
   } else {
      tryFile<Silo::TableReader<Twice>>("table", world().tableImage, input.substr(1), isWhole, tryTable);
   }
   return 0;
}

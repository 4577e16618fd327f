// Writes and reads single samples and the heads of their rings.
#include "silo/HistoryLayout.h"

#include <algorithm>
#include <bit>

namespace Silo {

namespace {

constexpr auto acquire = std::memory_order_acquire;
constexpr auto relaxed = std::memory_order_relaxed;
constexpr auto release = std::memory_order_release;

std::uint64_t checksumOfDepth(std::uint64_t depth) {
   Checksum<std::uint64_t> checksum;
   checksum.add({depth});
   return checksum.value();
}

} // namespace

std::uint64_t HistorySlot::checksumOf(std::uint64_t mark, std::uint64_t time,
                                      std::span<const std::uint64_t> values) {
   Checksum<std::uint64_t> checksum;
   checksum.add({mark, time});
   std::size_t i = 0;
   for (; i + wordsPerRow <= values.size(); i += wordsPerRow) {
      checksum.add({values[i], values[i + 1], values[i + 2], values[i + 3]});
   }
   if (i < values.size()) {
      std::uint64_t last[wordsPerRow] = {};
      std::copy(values.begin() + static_cast<std::ptrdiff_t>(i), values.end(), last);
      checksum.add(last);
   }
   return checksum.value();
}

void HistorySlot::write(std::uint64_t number, std::uint64_t flags, double time,
                        std::span<const std::uint64_t> values) {
   const std::uint64_t mark = number << SampleFlag::bits | flags;
   const auto timeBits = std::bit_cast<std::uint64_t>(time);
   clear();
   Word* const words = valueWords();
   for (std::size_t i = 0; i < values.size(); ++i) {
      words[i].store(values[i], release);
   }
   time_.store(timeBits, release);
   checksum_.store(checksumOf(mark, timeBits, values), release);
   mark_.store(mark, release);
}

bool HistorySlot::tryRead(HistorySample& sample) const {
   const std::uint64_t mark = mark_.load(acquire);
   if (mark == 0) {
      return false;
   }
   const Word* const words = valueWords();
   for (std::size_t i = 0; i < sample.values.size(); ++i) {
      sample.values[i] = words[i].load(acquire);
   }
   const std::uint64_t timeBits = time_.load(acquire);
   const std::uint64_t expected = checksum_.load(acquire);
   if (mark_.load(relaxed) != mark || checksumOf(mark, timeBits, sample.values) != expected) {
      return false;
   }
   sample.number = mark >> SampleFlag::bits;
   sample.flags = mark & ((1U << SampleFlag::bits) - 1);
   sample.time = std::bit_cast<double>(timeBits);
   return true;
}

void RingHead::keyIs(const Key& key) {
   begin();
   for (std::size_t i = 0; i < std::size(key_); ++i) {
      key_[i].store(key.words()[i], release);
   }
   keyHash_.store(key.hash(), release);
   sequence_.store(sequence_.load(relaxed) + 1, release);
}

Key RingHead::key() const {
   Key::Words words;
   for (std::size_t i = 0; i < words.size(); ++i) {
      words[i] = key_[i].load(acquire);
   }
   const Key key(words);
   return key.isValid() && key.hash() == keyHash_.load(acquire) ? key : Key();
}

void HistoryHeader::depthIs(std::uint64_t depth) {
   depth_.store(depth, release);
   checksum_.store(checksumOfDepth(depth), release);
}

std::optional<std::uint64_t> HistoryHeader::depth() const {
   const std::uint64_t depth = depth_.load(acquire);
   const bool isWhole =
        checksum_.load(acquire) == checksumOfDepth(depth) && depth != 0 && depth <= HistoryGeometry::maxDepth;
   return isWhole ? std::optional(depth) : std::nullopt;
}

std::vector<HistorySample> HistoryGeometry::samplesOf(const std::byte* bank, std::size_t ring) const {
   std::vector<HistorySample> samples;
   HistorySample found;
   found.values.resize(fields);
   for (std::size_t i = 0; i < depth; ++i) {
      // One that stands in another's place was put there by somebody else.
      if (sample(bank, ring, i).tryRead(found) && found.number % depth == i) {
         samples.push_back(found);
      }
   }
   std::ranges::sort(samples, {}, &HistorySample::number);
   // While it is read, the ring may have turned: those that were met before its newest ones were written are too old.
   std::erase_if(samples,
                 [&](const HistorySample& each) { return each.number + depth <= samples.back().number; });
   return samples;
}

std::optional<HistoryGeometry> historyGeometryOf(const RecordLayout& layout, const std::byte* file,
                                                 std::size_t size) {
   if (size < HistoryGeometry::banksOffset) {
      return std::nullopt;
   }
   const auto depth = reinterpret_cast<const HistoryHeader*>(file + sizeof(TableHeader))->depth();
   return depth ? std::optional<HistoryGeometry>(std::in_place, layout, *depth) : std::nullopt;
}

} // namespace Silo

// Looks for a key's ring, and reads it while it may be written.
#include "silo/HistoryReader.h"

#include <algorithm>

namespace Silo {

HistoryReader::HistoryReader(const Store& store, const std::string& name, const RecordLayout& layout)
     : layout_(layout),
       attachment_(store, name, layout, [layout](const Mapping& mapping, const TableState& state) {
          const auto geometry = historyGeometryOf(layout, mapping.data(), mapping.size());
          return geometry ? geometry->sizeFor(state.capacity) : std::size_t{0};
       }) {
   attachment_.attach();
}

bool HistoryReader::refresh() {
   bool hasChanged = false;
   return attachment_.refresh(true, hasChanged);
}

// The depth of an attached file was found whole. Should it be overwritten since, there is nothing to read.
HistoryGeometry HistoryReader::geometry() const {
   const Mapping& mapping = attachment_.mapping();
   const auto found = historyGeometryOf(layout_, mapping.data(), mapping.size());
   return found && found->sizeFor(attachment_.state().capacity) <= mapping.size()
               ? *found
               : HistoryGeometry(layout_, 0);
}

const std::byte* HistoryReader::bank(const HistoryGeometry& rings, std::size_t i) const {
   return attachment_.mapping().data() + rings.bankOffset(i);
}

std::size_t HistoryReader::depth() {
   return refresh() ? geometry().depth : 0;
}

// Of a file that was removed, replaced or cut meanwhile, zeros may stand for what is lost: then the one that has the name
// now is read.
bool HistoryReader::keys(std::vector<Key>& keys) {
   do {
      keys.clear();
      if (!refresh()) {
         return false;
      }
      const HistoryGeometry rings = geometry();
      for (std::size_t i = 0; rings.depth != 0 && i < attachment_.state().capacity; ++i) {
         const Key key = rings.head(bank(rings, i), i).key();
         if (!key.isEmpty() && std::ranges::find(keys, key) == keys.end()) {
            keys.push_back(key);
         }
      }
   } while (attachment_.mapping().isStale());
   return true;
}

bool HistoryReader::read(const Key& key, std::vector<HistorySample>& samples) {
   do {
      samples.clear();
      if (!refresh()) {
         return false;
      }
      readAttached(key, samples);
   } while (attachment_.mapping().isStale());
   return true;
}

void HistoryReader::readAttached(const Key& key, std::vector<HistorySample>& samples) {
   const HistoryGeometry rings = geometry();
   const std::size_t count = rings.depth == 0 ? 0 : attachment_.state().capacity;
   for (std::size_t looked = 0; looked < count; ++looked) {
      const std::size_t i = (nextGuess_ + looked) % count;
      const RingHead& ring = rings.head(bank(rings, i), i);
      const std::uint64_t sequence = ring.sequence();
      if (!(ring.key() == key)) {
         continue;
      }
      samples = rings.samplesOf(bank(rings, i), i);
      // Otherwise it was given to another key meanwhile, and its samples are nobody's.
      if (sequence % 2 == 0 && ring.sequence() == sequence) {
         nextGuess_ = i + 1;
         return;
      }
      samples.clear();
   }
}

} // namespace Silo

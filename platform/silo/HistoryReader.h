// A history as any other process sees it.
#pragma once

#include "silo/HistoryLayout.h"
#include "silo/TableAttachment.h"

#include <string>
#include <vector>

namespace Silo {

// Needs only read permission, and asks nobody: it reads while the history is written, and after its writer's death.
// Follows the file through restarts and replacements of its writer. Waits at most some 50 ms, and only for a header that
// is being written. One thread at a time. As for SIGBUS, see TableReader.
class HistoryReader {
 public:
   // Throws TableError if there is no such history, or it cannot be read.
   HistoryReader(const Store& store, const std::string& name, const RecordLayout& layout);

   // False: unavailable, and problem() says why. The keys that have samples, in no particular order.
   bool keys(std::vector<Key>& keys);
   // The samples of a key, oldest first; none if there is no such key. Each is whole and comes once. One that is written
   // meanwhile, or was damaged, is left out.
   bool read(const Key& key, std::vector<HistorySample>& samples);

   // What the header says, or said last.
   const TableState& state() { return refresh(), attachment_.state(); }
   std::size_t depth(); // samples of a ring; 0 if unavailable
   bool isWriterAlive() { return refresh() && attachment_.mapping().isLockedByAnother(); }
   const std::string& problem() const { return attachment_.problem(); }

 private:
   bool refresh();
   void readAttached(const Key& key, std::vector<HistorySample>& samples);
   HistoryGeometry geometry() const;
   const std::byte* bank(const HistoryGeometry& rings, std::size_t i) const;

   const RecordLayout layout_;
   TableAttachment attachment_;
   std::size_t nextGuess_ = 0; // the ring after the one that was read last: callers read them in one order
};

} // namespace Silo

// A shared table as any other process sees it.
#pragma once

#include "silo/RawTableReader.h"
#include "silo/Record.h"

#include <algorithm>
#include <optional>
#include <string>
#include <vector>

namespace Silo {

// One record of a snapshot. Unless the result is ok, the sample is the default and the key is what was found
// in the key's place, which may be nonsense: check isValid() before printing it.
template <RecordType Record>
struct Entry {
   Key key;
   ReadResult result = ReadResult::absent;
   Sample<Record> sample;
};

// Needs only read permission. Follows the table through restarts and replacements of its writer; while the
// table can't be read, calls answer `unavailable` and problem() says why. No call waits longer than about 50
// ms, nor at all on a dead writer. Nothing is allocated as long as the keys stay the same. One thread at a
// time.
//
// One case is beyond a reader's power: if somebody with write permission cuts the file of a table short,
// touching what is missing is a signal. The writer itself never does that; it replaces the file.
template <RecordType Record>
class TableReader {
 public:
   // Throws TableError if there is no such table, or it can't be read.
   TableReader(const Store& store, const std::string& name) : raw_(store, name, layoutOf<Record>()) {}

   // Unless the result is ok, the sample is the default one.
   ReadResult read(const Key& key, Sample<Record>& sample) {
      ReadResult result = raw_.read(key, &sample.record, sample.info);
      if (result != ReadResult::ok) {
         sample = {};
      }
      return result;
   }

   // All records, each of them whole, but not all of one moment; in no particular order. A key that is
   // deleted and added again meanwhile, over and over, may be missed. False: the table is unavailable. Keep
   // the vector for the next call to save allocations.
   bool snapshot(std::vector<Entry<Record>>& entries);

   // What the header says. While the table is unavailable: what it said last.
   const TableState& state() { return raw_.state(); }
   bool isWriterAlive() { return raw_.isWriterAlive(); }
   // Why the table was unavailable in the last call, naming it, with what was expected.
   const std::string& problem() const { return raw_.problem(); }

   // How old a sample is, in seconds, if `now` is of the given clock domain; nothing if the sample's time
   // means nothing there.
   std::optional<double> age(const RecordInfo& info, double now, const ClockDomain& domain) {
      if (info.sampleTime == unknownSampleTime || !raw_.state().clockDomain.isComparableWith(domain)) {
         return std::nullopt;
      }
      return now - info.sampleTime;
   }

 private:
   static constexpr int walks = 3; // before a snapshot is taken for what it is

   RawTableReader raw_;
};

template <RecordType Record>
bool TableReader<Record>::snapshot(std::vector<Entry<Record>>& entries) {
   Patience patience = raw_.patience();
   bool isStable = false;
   for (int walk = 0; walk < walks && !isStable; ++walk) {
      if (!raw_.beginWalk()) {
         entries.clear();
         return false;
      }
      std::size_t used = 0;
      for (std::size_t i = 0; i < raw_.capacity(); ++i) {
         if (used == entries.size()) {
            entries.emplace_back();
         }
         Entry<Record>& entry = entries[used];
         entry.result = raw_.readSlot(i, patience, entry.key, &entry.sample.record, entry.sample.info);
         if (entry.result == ReadResult::absent) {
            continue;
         }
         if (entry.result != ReadResult::ok) {
            entry.sample = {};
         }
         ++used;
      }
      entries.resize(used);
      isStable = raw_.endWalk();
   }
   if (!isStable) {
      // A key may have moved to another slot during the walk and been met twice.
      std::sort(entries.begin(), entries.end(),
                [](const auto& a, const auto& b) { return a.key.words() < b.key.words(); });
      entries.erase(std::unique(entries.begin(), entries.end(),
                                [](const auto& a, const auto& b) { return a.key == b.key; }),
                    entries.end());
   }
   return true;
}

} // namespace Silo

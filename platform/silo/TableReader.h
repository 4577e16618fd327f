// A shared table as any other process sees it.
#pragma once

#include "silo/RawTableReader.h"
#include "silo/Record.h"

#include <algorithm>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace Silo {

// One record of a snapshot. Unless the result is ok, the sample is the default and the key is whatever was found in its
// place: check isValid() before printing it.
template <RecordType Record>
struct Entry {
   Key key;
   ReadResult result = ReadResult::absent;
   Sample<Record> sample;
};

// Needs only read permission. Follows the table through restarts and replacements of its writer. While the table cannot
// be read, calls return `unavailable` and problem() says why. No call waits longer than about 50 ms, and none waits for
// a dead writer. Nothing is allocated as long as the keys stay the same. One thread at a time.
//
// When somebody with write permission cuts a table's file short, touching the missing part raises SIGBUS. (The writer
// itself never cuts a file; it replaces it.) A program that shall outlive that calls Kiln::surviveMappedFaults() of
// kiln/MappedFault.h once: then the table is unavailable until its writer has made it anew.
template <RecordType Record>
class TableReader {
 public:
   // Throws TableError if there is no such table, or it cannot be read.
   TableReader(const Store& store, const std::string& name) : raw_(store, name, layoutOf<Record>()) {}

   // Unless the result is ok, the sample is the default one.
   ReadResult read(const Key& key, Sample<Record>& sample) {
      ReadResult result = raw_.read(key, &sample.record, sample.info);
      if (result != ReadResult::ok) {
         sample = {};
      }
      return result;
   }

   // All records, in no particular order: each is whole, but they are not all of one moment. A key that is deleted and
   // added again and again meanwhile may be missed. False: the table is unavailable. Pass the same vector to the next
   // call to save allocations.
   bool snapshot(std::vector<Entry<Record>>& entries);
   // The same for a caller who keeps something else of the records: take(entry) is called with each, in an entry that is
   // used again, and begin() before the first, at which the caller forgets what it was given. The table may be walked
   // through three times.
   template <class Begin, class Take>
   bool walk(Begin begin, Take take);

   // What the header says, or said last, while the table is unavailable.
   const TableState& state() { return raw_.state(); }
   bool isWriterAlive() { return raw_.isWriterAlive(); }
   // Why the table was unavailable in the last call, naming it, with what was expected.
   const std::string& problem() const { return raw_.problem(); }

   // How old a sample is, in seconds, never negative. `now` is a time of the given clock domain; nothing is returned
   // when the sample's time is not comparable with it, or is after it: such a sample has a wrong time and any age.
   std::optional<double> age(const RecordInfo& info, double now, const ClockDomain& domain) {
      return age(raw_.state(), info, now, domain);
   }
   // The same by a state that was asked for before, for many records.
   static std::optional<double> age(const TableState& state, const RecordInfo& info, double now,
                                    const ClockDomain& domain) {
      const double age = now - info.sampleTime;
      // Written so that a NaN is refused too.
      if (info.sampleTime == unknownSampleTime || !state.clockDomain.isComparableWith(domain) ||
          !(age >= -clockRounding)) {
         return std::nullopt;
      }
      return std::max(age, 0.0);
   }

 private:
   static constexpr double clockRounding = 1e-3; // seconds
   static constexpr int walks = 3;               // tries for a walk during which no key is added

   template <class Room>
   bool walkThrough(Room& room);

   RawTableReader raw_;
};

template <RecordType Record>
template <class Begin, class Take>
bool TableReader<Record>::walk(Begin begin, Take take) {
   Entry<Record> entry;
   struct Room {
      Begin& begin;
      Take& take;
      Entry<Record>& entry;
      void clear() { begin(); }
      Entry<Record>& next() { return entry; }
      void keep() { take(std::as_const(entry)); }
   } room{begin, take, entry};
   return walkThrough(room);
}

template <RecordType Record>
bool TableReader<Record>::snapshot(std::vector<Entry<Record>>& entries) {
   struct Room {
      std::vector<Entry<Record>>& entries;
      std::size_t used = 0;
      void clear() { used = 0; }
      Entry<Record>& next() {
         if (used == entries.size()) {
            entries.emplace_back();
         }
         return entries[used];
      }
      void keep() { ++used; }
   } room{entries};
   const bool isRead = walkThrough(room);
   entries.resize(isRead ? room.used : 0);
   return isRead;
}

template <RecordType Record>
template <class Room>
bool TableReader<Record>::walkThrough(Room& room) {
   Patience patience = raw_.patience();
   using WalkEnd = RawTableReader::WalkEnd;
   WalkEnd end = WalkEnd::lost;
   for (int walk = 1; walk <= walks && end != WalkEnd::stable; ++walk) {
      if (!raw_.beginWalk()) {
         return false;
      }
      room.clear();
      // A key that is added may come from another slot, and be met twice. Nothing follows the last walk.
      std::set<Key::Words> met;
      for (std::size_t i = 0; i < raw_.capacity(); ++i) {
         Entry<Record>& entry = room.next();
         entry.result = raw_.readSlot(i, patience, entry.key, &entry.sample.record, entry.sample.info);
         if (entry.result == ReadResult::absent || (walk == walks && !met.insert(entry.key.words()).second)) {
            continue;
         }
         if (entry.result != ReadResult::ok) {
            entry.sample = {};
         }
         room.keep();
      }
      end = raw_.endWalk();
   }
   return end != WalkEnd::lost;
}

} // namespace Silo

// The writer of a history: for each key, a ring of the samples taken last.
#pragma once

#include "silo/Errors.h"
#include "silo/HistoryLayout.h"
#include "silo/KeyIndex.h"
#include "silo/Store.h"

#include <cstddef>
#include <functional>
#include <string>
#include <vector>

namespace Silo {

// When what a sample's totals count was broken last, and when it began to count, by the table's clock. A sample is marked
// with what came after the one before it.
struct HistoryMarks {
   double discontinuity;
   double begun;
   std::uint64_t others = 0; // flags that are set as they are
};

struct HistoryOptions {
   std::size_t depth = 0;          // samples of a ring
   std::size_t maxRings = 0;       // the file grows up to these, in banks of sixteen
   double pollingInterval = 0;     // seconds between two samples of a ring, above 0
   double spacing = 0;             // a sample that comes sooner after the one before is left out
   ClockDomain clockDomain;        // of the times that will be written
   CorruptionHandler onCorruption; // may be empty
   bool isProvisional = false;     // a file that is created goes with its writer, unless that keeps it
};

// Holds the writer's lock while it lives; the samples stay for readers and for the next writer, which goes on with them,
// also with another depth. Samples of another clock mean nothing on this one: then the history begins anew. Each sample
// is whole or left out, however its writer ends. One thread at a time. Allocates only for a new key, and in mend().
//
// The constructor throws WriterConflict if the file has a writer, and TableError for what the system refuses. What is no
// history of this layout is reported to the corruption handler and replaced by an empty one.
class HistoryTable {
 public:
   HistoryTable(const Store& store, const std::string& name, const RecordLayout& layout,
                HistoryOptions options);
   ~HistoryTable();
   HistoryTable(const HistoryTable&) = delete;
   HistoryTable& operator=(const HistoryTable&) = delete;

   const std::string& name() const { return name_; }
   // Why there is nothing of an earlier writer's; empty if there is, or never was any.
   const std::string& whyBegunAnew() const { return whyBegunAnew_; }
   static std::size_t bytesPerRing(const RecordLayout& layout, std::size_t depth) {
      return HistoryGeometry(layout, depth).bankStride / HistoryGeometry::ringsPerBank;
   }

   // Adds a sample, in the place of the oldest one if the ring is full. As many values as the layout has. A key without a
   // ring gets one: that of a key whose samples have all become too old to be of interest, a new one, or at last that of
   // the key that was silent for the longest time. Throws CapacityError if there is none, TableError if the system has no
   // memory, and std::invalid_argument for a time that is not finite. False: left out, so soon after the one before.
   bool write(const Key& key, double time, const HistoryMarks& marks, std::span<const std::uint64_t> values);
   // Whether a sample is left out so soon after one of that time, whatever its key.
   bool isTooSoon(double time, double lastTime) const { return time - lastTime < options_.spacing; }
   // As Table::mend.
   void mend();
   void pollingIntervalIs(double seconds, double spacing);
   void keep() { options_.isProvisional = false; }

 private:
   using RingIndex = std::size_t;
   TableHeader& header() const { return *reinterpret_cast<TableHeader*>(mapping_.data()); }
   HistoryHeader& historyHeader() const {
      return *reinterpret_cast<HistoryHeader*>(mapping_.data() + sizeof(TableHeader));
   }
   std::byte* bank(RingIndex i) const { return mapping_.data() + geometry_.bankOffset(i); }
   RingHead& head(RingIndex i) const { return geometry_.head(bank(i), i); }
   HistorySlot& sample(RingIndex i, std::size_t place) const { return geometry_.sample(bank(i), i, place); }

   void open();
   void createIn(std::size_t rings);
   void beginAnew(std::string why);
   std::string problemWithFile();
   void carryOver(const Mapping& old, const HistoryGeometry& from);
   void adopt();
   void begin();
   void remake(const std::string& problem);
   std::string lossInMemory() const;
   void mendHeads();
   void prefetch(RingIndex i) const;
   RingIndex ringFor(const Key& key, double time);
   RingIndex ringToTake(double time);
   RingIndex silentRing(double time, double forLongerThan);
   void growTo(std::size_t rings);
   void removeIfNew();
   void report(std::string text, Corruption::Remedy remedy) const;

   struct Ring {              // the writer's own copy: it never trusts shared memory
      std::uint64_t last = 0; // number of the newest sample
      std::size_t place = 0;  // of the next one: its number modulo the depth
      double lastTime = unknownSampleTime;
      HistoryMarks marks{unknownSampleTime,
                         unknownSampleTime}; // of the newest sample; unknown: not this writer's
      bool isBlank = false;                  // nobody has touched its samples: they are zeros
   };
   Ring unusedRing(bool isBlank) const { return {.place = 1 % geometry_.depth, .isBlank = isBlank}; }

   const Store store_;
   const std::string name_;
   const RecordLayout layout_;
   const HistoryGeometry geometry_;
   HistoryOptions options_;
   Mapping mapping_;
   bool isNew_ = false;      // made by this writer, in place of nothing
   bool isNameLost_ = false; // reported, and not yet made anew
   TableState state_;
   KeyIndex index_;                        // has room for as many rings as there may be
   std::vector<Ring> rings_;               // as many as there are
   RingIndex nextUnused_ = 0;              // all rings from here on are free
   double noneBefore_ = unknownSampleTime; // no ring's newest sample is older
   std::size_t nextGuess_ = 0;
   std::string whyBegunAnew_;
   std::string noRoom_; // why the file could not get longer; tried again after the next mend()
};

} // namespace Silo

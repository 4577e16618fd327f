// The clear of a published record, and its copy in the clear table.
#pragma once

#include "silo/Table.h"
#include "vex/Continuity.h"

#include <cstdint>
#include <memory>
#include <utility>

namespace Vex {

inline bool isBelow(U64 total, U64 cleared) {
   return total < cleared;
}
inline bool isBelow(const Silo::Interface::QueueStatistics& total,
                    const Silo::Interface::QueueStatistics& cleared) {
   return total.packets < cleared.packets || total.bytes < cleared.bytes || total.drops < cleared.drops;
}

// The clear of one record.
template <class Record>
class Clear {
 public:
   using Table = Silo::Table<Record>;

   // Takes over what an earlier process cleared. A clear that is ahead of the record was taken from another one.
   void continueFrom(Table& table, const Silo::Key& key, const Record& record) {
      if (!table.has(key)) {
         return;
      }
      const Silo::Sample<Record> sample = table.sampleOrDefault(key);
      bool isOfRecord =
           sample.info.generation != 0 && sample.record.createdUnixTime == record.createdUnixTime;
      for (std::size_t i = 0; i < record.totals.size(); ++i) {
         isOfRecord &= !isBelow(record.totals[i], sample.record.totals[i]);
      }
      if (!isOfRecord) {
         table.recordDel(key);
         return;
      }
      record_ = std::make_unique<Record>(sample.record);
      time_ = sample.info.sampleTime;
      isOwed_ = sample.record.createdTime != record.createdTime; // the record's clock is another one now
      record_->createdTime = record.createdTime;
   }
   void clear(const Record& record, double now) {
      record_ = std::make_unique<Record>(record);
      dropStep(*record_);
      time_ = now;
      isOwed_ = true;
   }
   // Writes the clear if the table lacks it; throws what the table throws.
   void write(Table* table, const Silo::Key& key) {
      if (table == nullptr || !record_) {
         return;
      }
      if (std::exchange(losses_, table->losses()) != table->losses()) {
         isOwed_ = isOwed_ || !table->isIntact(key);
      }
      if (isOwed_) {
         table->recordIs(key, *record_, time_ == Silo::unknownSampleTime ? record_->createdTime : time_);
         isOwed_ = false;
      }
   }

 private:
   std::unique_ptr<Record> record_;
   double time_ = Silo::unknownSampleTime;
   bool isOwed_ = false;
   std::uint64_t losses_ = 0; // of the table, when it was looked at last
};

} // namespace Vex

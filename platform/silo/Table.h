// A shared table as its one writer sees it.
#pragma once

#include "silo/RawTable.h"
#include "silo/Record.h"

#include <string>
#include <vector>

namespace Silo {

// Holds the writer's lock and the mapping while it lives; when it goes, the records stay for readers and for
// the next writer. One thread at a time. Nothing is allocated except for a new key.
//
// Construction takes over what the last writer left. Whole records stay, with generation and sample time (a
// sample time of another clock domain becomes unknownSampleTime). Each record that is not whole is reported
// once to the corruption handler and mended as far as it can be: completed from the journal, or begun anew
// from the default entry. A table of another layout is reported and created anew, empty. Throws
// WriterConflict if the table has a writer, and TableError for what the system refuses.
template <RecordType Record>
class Table {
 public:
   Table(const Store& store, const std::string& name, const Record& defaultEntry, TableOptions options)
        : raw_(store, name, layoutOf<Record>(), &defaultEntry, std::move(options)) {}

   const std::string& name() const { return raw_.name(); }
   std::size_t capacity() const { return raw_.capacity(); }
   std::size_t size() const { return raw_.size(); }
   bool has(const Key& key) const { return raw_.has(key); }
   std::vector<Key> keys() const { return raw_.keys(); } // in no particular order

   // Publishes the record. `sampleTime` is in seconds of the table's clock domain, finite. A new key takes a
   // free slot, or CapacityError is thrown and the table is as before.
   void recordIs(const Key& key, const Record& record, double sampleTime) {
      raw_.write(key, &record, sampleTime);
   }
   void recordDel(const Key& key) { raw_.remove(key); }

   // The record as published. Throws AbsentRecord, or CorruptionError if somebody has overwritten it.
   Sample<Record> sample(const Key& key) const {
      Sample<Record> result;
      result.info = raw_.read(key, &result.record);
      return result;
   }

   // The same, but a corrupt record is reported to the corruption handler, at every read, and the default
   // entry is answered in its place, as for an absent key, with generation 0. The next recordIs makes the
   // record whole.
   Sample<Record> sampleOrDefault(const Key& key) const {
      Sample<Record> result;
      result.info = raw_.readOrDefault(key, &result.record);
      return result;
   }

   // Seconds between two samples, for readers to judge by how old a record may be.
   void pollingIntervalIs(double seconds) { raw_.pollingIntervalIs(seconds); }

 private:
   RawTable raw_;
};

} // namespace Silo

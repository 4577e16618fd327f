// A shared table as its one writer sees it.
#pragma once

#include "silo/FormerLayout.h"
#include "silo/RawTable.h"
#include "silo/Record.h"

#include <string>
#include <vector>

namespace Silo {

// Holds the writer's lock and the mapping while it lives. When it goes, the records stay for readers and for the next
// writer. One thread at a time. Allocates only for a new key.
//
// The constructor takes over what the last writer left. Whole records stay, with generation and sample time (a sample
// time of another clock domain becomes unknownSampleTime). Each record that is not whole is reported once to the
// corruption handler and mended as far as possible: completed from the journal, or begun anew from the default entry. A
// table of another layout is reported, and created anew, empty, or taken over if it has the given former layout. Throws
// WriterConflict if the table has a writer, and TableError for what the system refuses.
template <RecordType Record>
class Table {
 public:
   Table(const Store& store, const std::string& name, const Record& defaultEntry, TableOptions options)
        : raw_(store, name, layoutOf<Record>(), &defaultEntry, std::move(options)) {}

   // Also takes over a table of Former records, with generations and sample times, as soon as its records are mended: a
   // kill loses nothing. `upgraded` must make the default entry of a default Former.
   template <RecordType Former>
   Table(const Store& store, const std::string& name, const Record& defaultEntry, TableOptions options,
         Record (*upgraded)(const Former&))
        : raw_(store, name, layoutOf<Record>(), &defaultEntry, std::move(options), formerLayout(upgraded)) {}

   const std::string& name() const { return raw_.name(); }
   std::size_t capacity() const { return raw_.capacity(); }
   std::size_t size() const { return raw_.size(); }
   bool has(const Key& key) const { return raw_.has(key); }
   std::vector<Key> keys() const { return raw_.keys(); } // in no particular order

   // Publishes the record. `sampleTime` is in seconds of the table's clock domain, finite. A new key takes a free slot;
   // without one, throws CapacityError and leaves the table as it was.
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

   // The same, but an absent key gives the default entry, with generation 0. So does a corrupt record, which is also
   // reported to the corruption handler at every read, unless mend() has done so; the next recordIs makes it whole.
   Sample<Record> sampleOrDefault(const Key& key) const {
      Sample<Record> result;
      result.info = raw_.readOrDefault(key, &result.record);
      return result;
   }

   // To be called with each polling pass: finds and reports a table whose file was removed, replaced or cut, or whose
   // header was damaged, and makes it anew with the records that are left. Also reports records that were overwritten.
   // Each is reported once. Records that are lost keep their generations, and come with their next recordIs.
   void mend() { raw_.mend(); }
   // Rises when mend() found that records were lost.
   std::uint64_t losses() const { return raw_.losses(); }
   // Whether the table has the record as it was written last.
   bool isIntact(const Key& key) const { return raw_.isIntact(key); }

   // The writer that left the table without closing it, as a killed one does; 0: none.
   pid_t unclosedBy() const { return raw_.unclosedBy(); }
   // Seconds between two samples, from which readers judge how old a record may be.
   void pollingIntervalIs(double seconds) { raw_.pollingIntervalIs(seconds); }

   // A provisional table stays from now on, as any other does.
   void keep() { raw_.keep(); }

 private:
   RawTable raw_;
};

} // namespace Silo

// What can go wrong with a shared table, as exceptions and as corruption reports.
#pragma once

#include <functional>
#include <stdexcept>
#include <string>
#include <sys/types.h>

namespace Silo {

// A table that cannot be opened, created or read. The text names it and says why and what was expected.
class TableError : public std::runtime_error {
 public:
   using std::runtime_error::runtime_error;
};

// Another process is this table's writer.
class WriterConflict : public TableError {
 public:
   WriterConflict(const std::string& text, pid_t holder) : TableError(text), holder_(holder) {}
   pid_t holder() const { return holder_; } // 0: not known

 private:
   pid_t holder_;
};

// No free record is left; the table is as it was.
class CapacityError : public TableError {
 public:
   using TableError::TableError;
};

// The table does not hold the record that was asked for.
class AbsentRecord : public TableError {
 public:
   using TableError::TableError;
};

// One finding in a table that its writer opened or read, and what was done about it.
struct Corruption {
   enum class Remedy {
      none,         // only found; the next write makes the record whole
      kept,         // left open by a dead writer, but its checksum proves it whole
      finished,     // half-written by a dead writer, completed from the journal
      restarted,    // began anew from the table's default entry
      freed,        // its key was lost as well: the slot is free again
      headerMended, // the header's changing part was written anew; records kept
      takenOver,    // no damage: the records of the last release's layout were taken over
      recreated,    // the whole table was created anew, empty
      modeMended,   // who may open the file was changed, and is as before again
      remade,       // the whole table was made anew by its living writer, with its records
      lost,         // that failed: nobody finds the table until it succeeds
   };

   std::string table;
   std::string key; // empty: the table as a whole, or a record whose key is lost
   std::string text;
   Remedy remedy = Remedy::none;
};

// Called on the writer's thread, from its constructor or from a read. It must not use the table.
using CorruptionHandler = std::function<void(const Corruption&)>;

// A record in memory is no longer what its writer wrote.
class CorruptionError : public std::runtime_error {
 public:
   explicit CorruptionError(Corruption corruption)
        : std::runtime_error("table " + corruption.table + ", record " + corruption.key + ": " +
                             corruption.text),
          corruption_(std::move(corruption)) {}
   const Corruption& corruption() const { return corruption_; }

 private:
   Corruption corruption_;
};

} // namespace Silo

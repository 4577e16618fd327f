// A table that a show operation has made, to be laid out elsewhere.
#pragma once

#include "counters/chip/Clears.h"
#include "counters/chip/Readings.h"

#include <variant>
#include <vector>

namespace ZelCounter {

// A reading that counts are from. `what` tells it from the others of its chip: an interface, a pipe, a table.
struct ToldReading {
   Kiln::String what;
   ReadingState state;
   Cleared cleared = {}; // what is shown of it
};

struct TableView {
   // Labels tell a row from the others of its table; counters are what moves. Where a table has levels of a buffer,
   // these are among the counters: they may fall, and a fall has no rate.
   enum class Holds : U8 {
      text,   // a label
      number, // a label
      counter,
      age,    // in ms: in text as people say it, in JSON as NAME-ms, and among the counters
      remark, // text for people; programs have it among the notes
   };
   struct Column {
      const char* name;
      Holds holds;
      unsigned width = 0; // in a view, at least; numbers are at its right end
   };
   // A count that was never read; a note says why.
   struct Unread {};
   // A count that the row does not have, or that the chip does not support.
   struct Unsupported {};
   // Text for a label or a remark; the others for numbers. The last two are null in JSON, which lists the latter.
   using Cell = std::variant<U64, Kiln::String, Unread, Unsupported>;

   Kiln::String title;
   std::vector<Column> columns;
   std::vector<std::vector<Cell>> rows = {};      // each with a cell for each column
   std::vector<Kiln::String> notes = {};          // what could not be read, and why
   std::vector<Kiln::String> unprintedNotes = {}; // of remarks
   std::vector<ToldReading> readings = {};        // that the rows are from
   bool isSinceClear = false;                     // the title goes on with when that was
};

} // namespace ZelCounter

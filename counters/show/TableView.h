// What a show operation has to say, as rows that are rendered elsewhere.
#pragma once

#include "kiln/Types.h"

#include <variant>
#include <vector>

namespace ZelCounter {

struct TableView {
   // Labels tell a row from the others of its table; counters are what moves. Levels are among them where a
   // table has both: those may fall, and a fall has no rate.
   enum class Holds : U8 {
      text,   // a label
      number, // a label
      counter,
      remark, // text for people; for programs it is among the notes
   };
   struct Column {
      const char* name;
      Holds holds;
      unsigned width = 0; // at least, of a view's; numbers stand at its right end
   };
   // A count that was never read, which people see as 0; a note says why.
   struct Unread {};
   // A number, or a text; where a number belongs the text stands for its absence.
   using Cell = std::variant<U64, Kiln::String, Unread>;

   Kiln::String title;
   std::vector<Column> columns;
   std::vector<std::vector<Cell>> rows = {};      // each with a cell for each column
   std::vector<Kiln::String> notes = {};          // what could not be read, and why
   std::vector<Kiln::String> unprintedNotes = {}; // of remarks
};

} // namespace ZelCounter

// What a show operation has to say, as rows: rendered to text here, and by whoever wants them otherwise.
#pragma once

#include "kiln/TextOutput.h"

#include <variant>
#include <vector>

namespace ZelCounter {

struct TableView {
   struct Column {
      const char* name;
      unsigned width; // at least; numbers stand at its right end
      bool isNumber;
   };
   // A number, or a text; in a number column the text says why there is no number.
   using Cell = std::variant<U64, Kiln::String>;

   Kiln::String title;
   std::vector<Column> columns;
   std::vector<std::vector<Cell>> rows; // each with a cell for each column
   std::vector<Kiln::String> notes;     // what could not be read, and why
};

// Title, ruler, heading, ruler, rows (or "none"), ruler, notes, and an empty line.
void print(Kiln::TextOutput& out, const TableView& view);

} // namespace ZelCounter

// Writes a whole view, which is in memory already.
#include "counters/show/ShowOutput.h"

namespace ZelCounter {

void ShowOutput::view(const TableView& table) {
   tableBegin({table.title, table.columns, TableLayout::view});
   for (std::size_t i = 0; i < table.rows.size() && ok(); ++i) {
      row(table.rows[i]);
   }
   for (const Kiln::String& text : table.notes) {
      note(text);
   }
   for (const Kiln::String& text : table.unprintedNotes) {
      unprintedNote(text);
   }
   tableEnd();
}

} // namespace ZelCounter

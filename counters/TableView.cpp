// Lays rows out in columns.
#include "TableView.h"

#include <string>

namespace ZelCounter {

namespace {

void printLine(Kiln::TextOutput& out, const std::vector<TableView::Column>& columns,
               const std::vector<TableView::Cell>& cells) {
   Kiln::String line;
   for (std::size_t i = 0; i < columns.size(); ++i) {
      const U64* const number = std::get_if<U64>(&cells[i]);
      const Kiln::String text =
           number != nullptr ? std::to_string(*number) : std::get<Kiln::String>(cells[i]);
      const Kiln::String padding(columns[i].width > text.size() ? columns[i].width - text.size() : 0, ' ');
      line += "  " + (columns[i].isNumber ? padding + text : text + padding);
   }
   line.erase(line.find_last_not_of(' ') + 1);
   out.write(line + "\n");
}

} // namespace

void print(Kiln::TextOutput& out, const TableView& view) {
   std::size_t width = 0;
   std::vector<TableView::Cell> names;
   for (const TableView::Column& column : view.columns) {
      width += column.width + 2;
      names.emplace_back(Kiln::String(column.name));
   }
   const Kiln::String ruler = Kiln::String(width, '=') + "\n";
   out.write(view.title + "\n" + ruler);
   printLine(out, view.columns, names);
   out.write(ruler);
   for (std::size_t i = 0; i < view.rows.size() && out.ok(); ++i) {
      printLine(out, view.columns, view.rows[i]);
   }
   out.write((view.rows.empty() ? "  none\n" : "") + ruler);
   for (const Kiln::String& note : view.notes) {
      out.write(note + "\n");
   }
   out.write("\n");
}

} // namespace ZelCounter

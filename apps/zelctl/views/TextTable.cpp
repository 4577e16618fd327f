// Measures columns, leaves out what does not fit, and pads cells.
#include "apps/zelctl/views/TextTable.h"

#include "apps/zelctl/terminal/Utf8.h"
#include "kiln/Choices.h"

#include <algorithm>

namespace ZelCtl {

namespace {

using Kiln::String;
using Kind = ShownColumn::Kind;

constexpr std::size_t gap = 2;

struct Column {
   std::size_t cell;
   std::size_t width;
   bool isZero;
};

// Whether the cell is the last of a row that ends early.
bool isLoose(const ShownTable& table, const ShownRow& row, std::size_t cell) {
   return row.cells.size() < table.columns.size() && cell + 1 >= row.cells.size();
}

std::vector<Column> columnsOf(const ShownTable& table) {
   std::vector<Column> columns;
   for (std::size_t i = 0; i < table.columns.size(); ++i) {
      Column column{i, columnsIn(table.columns[i].heading), table.columns[i].kind == Kind::counter};
      for (const ShownRow& row : table.rows) {
         if (!isLoose(table, row, i)) {
            const String& text = row.cells[i].text;
            column.width = std::max(column.width, columnsIn(text));
            column.isZero = column.isZero && (text == "0" || text == "-" || text == "not supported");
         }
      }
      columns.push_back(column);
   }
   return columns;
}

// Takes columns out until the others fit; returns the headings of those that went.
std::vector<String> fit(const ShownTable& table, std::size_t width, std::vector<Column>* columns) {
   std::vector<String> leftOut;
   for (const bool onlyZeros : {true, false}) {
      for (std::size_t i = columns->size(); i-- > 0;) {
         std::size_t used = gap * (columns->size() - 1);
         for (const Column& column : *columns) {
            used += column.width;
         }
         const Column column = (*columns)[i];
         const ShownColumn& shown = table.columns[column.cell];
         if (used > width && shown.kind != Kind::key && (column.isZero || !onlyZeros)) {
            columns->erase(columns->begin() + static_cast<std::ptrdiff_t>(i));
            leftOut.push_back(shown.heading);
         }
      }
   }
   return leftOut;
}

String rowText(const ShownTable& table, const ShownRow& row, const std::vector<Column>& columns) {
   String line;
   for (const Column& column : columns) {
      if (column.cell >= row.cells.size()) {
         break;
      }
      const String& text = row.cells[column.cell].text;
      const bool isFirst = &column == &columns.front();
      const std::size_t width = isFirst || !isLoose(table, row, column.cell) ? column.width : 0;
      const String blanks(width - std::min(columnsIn(text), width), ' ');
      line.append(isFirst ? 0 : gap, ' ');
      line += isFirst ? text : blanks;
      line += isFirst ? blanks : text;
   }
   line.resize(line.find_last_not_of(' ') + 1);
   return line + "\n";
}

String wrappedText(const String& text, std::size_t width) {
   String lines;
   for (const String& line : wrapped(text, width)) {
      lines += line + "\n";
   }
   return lines;
}

} // namespace

String tableText(const ShownTable& table, std::size_t width) {
   String text = table.title.empty() ? "" : wrappedText(table.title, width);
   std::vector<Column> columns = columnsOf(table);
   std::vector<String> leftOut;
   if (width != 0 && !columns.empty()) {
      leftOut = fit(table, width, &columns);
   }
   if (!columns.empty()) {
      ShownRow headings;
      for (const ShownColumn& column : table.columns) {
         headings.cells.push_back({column.heading});
      }
      text += rowText(table, headings, columns);
   }
   for (const ShownRow& row : table.rows) {
      text += rowText(table, row, columns);
   }
   if (!leftOut.empty()) {
      std::ranges::reverse(leftOut);
      text += wrappedText("(no room for " + Kiln::joined(leftOut, ", ") + ": enlarge the window)", width);
   }
   for (const String& note : table.notes) {
      text += wrappedText(note, width);
   }
   return text;
}

} // namespace ZelCtl

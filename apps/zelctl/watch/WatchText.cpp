// Lays out columns and marks, and leaves out what doesn't fit.
#include "apps/zelctl/watch/WatchText.h"

#include "apps/zelctl/terminal/Utf8.h"
#include "kiln/Choices.h"

#include <algorithm>
#include <iterator>

namespace ZelCtl {

namespace {

using Kiln::String;
using Kind = ShownColumn::Kind;
using State = WatchedRow::State;

constexpr const char* bold = "\x1b[1m";
constexpr const char* plain = "\x1b[0m";
constexpr const char* gap = "  ";

// One column as it is printed: a cell of the rows, or its rate.
struct Column {
   std::size_t cell;
   bool isRate;
   String heading;
   bool isZero = true;
   bool isNumber = true;
   std::size_t width = 0;
};

const String& textOf(const WatchedRow& row, const Column& column) {
   static const String none;
   if (column.cell >= row.cells.size()) {
      return none;
   }
   return column.isRate ? row.cells[column.cell].rate : row.cells[column.cell].text;
}

// Whether the cell is the last of a row that ends early. Such a text may have any length, and widens no column.
bool isLoose(const WatchedTable& table, const WatchedRow& row, std::size_t cell) {
   return row.cells.size() < table.columns.size() && cell + 1 == row.cells.size();
}

std::vector<Column> columnsOf(const WatchedTable& table) {
   std::vector<Column> columns;
   for (std::size_t i = 0; i < table.columns.size(); ++i) {
      columns.push_back({i, false, table.columns[i].heading});
      if (table.columns[i].kind == Kind::counter) {
         columns.push_back({i, true, table.columns[i].rateHeading});
      }
   }
   for (Column& column : columns) {
      column.width = columnsIn(column.heading);
      for (const WatchedRow& row : table.rows) {
         if (isLoose(table, row, column.cell)) {
            continue;
         }
         const String& text = textOf(row, column);
         column.width = std::max(column.width, columnsIn(text));
         column.isZero = column.isZero && (text.empty() || text == "0" || text == "-");
         column.isNumber = column.isNumber && text.find_first_not_of("0123456789-.kMGTPE%") == String::npos;
      }
   }
   return columns;
}

std::size_t widthOf(const std::vector<Column>& columns) {
   std::size_t width = 1; // the mark
   for (const Column& column : columns) {
      width += column.width + (&column == &columns.front() ? 1 : 2);
   }
   return width;
}

// Takes columns out until the others fit: first rates of zero, then counters of zero, then the last ones. Returns how
// many went, without the rates of zero, which nobody misses.
std::size_t fitColumns(const WatchedTable& table, std::size_t width, std::vector<Column>* columns) {
   const auto isCounter = [&](const Column& one) { return table.columns[one.cell].kind == Kind::counter; };
   const auto fits = [&] { return width == 0 || widthOf(*columns) <= width; };
   if (!fits()) {
      std::erase_if(*columns, [](const Column& one) { return one.isRate && one.isZero; });
   }
   std::size_t leftOut = 0;
   if (!fits()) {
      leftOut = std::erase_if(*columns, [&](const Column& one) { return isCounter(one) && one.isZero; });
   }
   // Whole columns only: half a number would be a wrong one. What names the rows stays.
   for (std::size_t i = columns->size(); i-- > 0 && !fits();) {
      if (table.columns[(*columns)[i].cell].kind != Kind::key) {
         columns->erase(columns->begin() + static_cast<std::ptrdiff_t>(i));
         ++leftOut;
      }
   }
   return leftOut;
}

// A line that is put together from pieces and cut to the screen's width. Styles take no columns.
class Line {
 public:
   explicit Line(const WatchRoom& room) : room_(room) {}
   void add(const String& text, bool isStrong) {
      const std::size_t left = room_.width == 0 ? String::npos : room_.width - used_;
      const String shown = left == String::npos ? text : cutTo(text, left);
      used_ += columnsIn(shown);
      const bool isStyled = isStrong && room_.hasStyles && !shown.empty();
      text_ += isStyled ? bold + shown + plain : shown;
   }
   String text() const {
      const std::size_t end = room_.hasStyles ? text_.size() : text_.find_last_not_of(' ') + 1;
      return text_.substr(0, end);
   }

 private:
   const WatchRoom& room_;
   std::size_t used_ = 0;
   String text_;
};

String padded(const String& text, const Column& column, bool isLast) {
   const std::size_t width = columnsIn(text);
   const String blanks(column.width > width ? column.width - width : 0, ' ');
   return column.isNumber ? blanks + text : isLast ? text : text + blanks;
}

String rowLine(const WatchedTable& table, const WatchedRow& row, const std::vector<Column>& columns,
               const WatchRoom& room) {
   Line line(room);
   const bool isAllStrong = row.state == State::appeared || row.state == State::gone;
   line.add(String(1, static_cast<char>(row.state)), row.state != State::same);
   for (const Column& column : columns) {
      if (column.cell >= row.cells.size()) {
         break;
      }
      line.add(&column == &columns.front() ? " " : gap, false);
      const bool isStrong = isAllStrong || row.cells[column.cell].hasChanged;
      line.add(isLoose(table, row, column.cell)
                    ? textOf(row, column)
                    : padded(textOf(row, column), column, &column == &columns.back()),
               isStrong);
   }
   return line.text();
}

String headingLine(const std::vector<Column>& columns, const WatchRoom& room) {
   Line line(room);
   line.add(" ", false);
   for (const Column& column : columns) {
      line.add(&column == &columns.front() ? " " : gap, false);
      line.add(padded(column.heading, column, &column == &columns.back()), false);
   }
   return line.text();
}

String plainLine(const String& text, const WatchRoom& room) {
   Line line(room);
   line.add(text, false);
   return line.text();
}

struct Row {
   String line;
   bool isQuiet; // it never changed
};

// A table's lines.
struct Block {
   std::vector<String> heading;
   std::vector<Row> rows;
   std::vector<String> notes;

   std::size_t size() const { return heading.size() + rows.size() + notes.size(); }
};

Block blockOf(const WatchedTable& table, const WatchRoom& room, std::size_t* columnsLeftOut) {
   Block block;
   if (!table.title.empty()) {
      block.heading.push_back(plainLine(table.title, room));
   }
   std::vector<Column> columns = columnsOf(table);
   *columnsLeftOut += fitColumns(table, room.width, &columns);
   if (!columns.empty()) {
      block.heading.push_back(headingLine(columns, room));
   }
   for (const WatchedRow& row : table.rows) {
      block.rows.push_back(
           {rowLine(table, row, columns, room), !row.hasEverChanged && row.state == State::same});
   }
   for (const String& note : table.notes) {
      for (const String& line : wrapped(note, room.width)) {
         block.notes.push_back(plainLine(line, room));
      }
   }
   return block;
}

// Takes rows that never changed out, last ones first, until so many lines are left or no such row is. A table that has
// no other rows goes as a whole. Returns how many rows went.
std::size_t leaveOutQuiet(std::vector<Block>* blocks, std::size_t height) {
   std::size_t lines = 0;
   for (const Block& block : *blocks) {
      lines += block.size();
   }
   std::size_t leftOut = 0;
   for (std::size_t i = blocks->size(); i-- > 0 && lines > height;) {
      Block& block = (*blocks)[i];
      const std::size_t before = block.size();
      for (std::size_t row = block.rows.size(); row-- > 0 && lines + block.size() - before > height;) {
         if (block.rows[row].isQuiet) {
            block.rows.erase(block.rows.begin() + static_cast<std::ptrdiff_t>(row));
            ++leftOut;
         }
      }
      if (block.rows.empty() && block.size() < before && block.notes.empty()) {
         block.heading.clear();
      }
      lines -= before - block.size();
   }
   return leftOut;
}

} // namespace

std::vector<String> layOut(const std::vector<WatchedTable>& tables, const WatchRoom& room) {
   std::vector<Block> blocks;
   std::size_t columns = 0;
   std::size_t lines = 0;
   for (const WatchedTable& table : tables) {
      blocks.push_back(blockOf(table, room, &columns));
      lines += blocks.back().size();
   }
   std::size_t rows = 0;
   std::size_t height = String::npos;
   if (room.height != 0 && lines + (columns != 0 ? 1 : 0) > room.height) {
      height = room.height - 1; // the last line says what is missing
      rows = leaveOutQuiet(&blocks, height);
   }
   std::vector<String> texts;
   for (Block& block : blocks) {
      std::move(block.heading.begin(), block.heading.end(), std::back_inserter(texts));
      for (Row& row : block.rows) {
         texts.push_back(std::move(row.line));
      }
      std::move(block.notes.begin(), block.notes.end(), std::back_inserter(texts));
   }
   if (texts.size() > height) {
      rows += texts.size() - height;
      texts.resize(height);
   }
   String omitted = rows != 0 ? Kiln::counted(rows, "row") : "";
   if (columns != 0) {
      omitted += (omitted.empty() ? "" : " and ") + Kiln::counted(columns, "column");
   }
   if (!omitted.empty()) {
      texts.push_back(plainLine("(" + omitted + (rows + columns == 1 ? " does" : " do") +
                                     " not fit: enlarge the window or ask for less)",
                                room));
   }
   return texts;
}

} // namespace ZelCtl

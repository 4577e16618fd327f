// Lays rows out as text. Each layout is fixed to the blank; where they look alike and differ, they do so deliberately.
#include "counters/show/TextShow.h"

#include "kiln/Choices.h"

#include <algorithm>
#include <string>
#include <utility>

namespace ZelCounter {

namespace {

using Cell = TableView::Cell;
using Cells = std::span<const Cell>;

Kiln::String ruler(std::size_t width) {
   return Kiln::String(width, '=') + '\n';
}

const Kiln::String catalogueRuler = ruler(96);
const Kiln::String directRuler = ruler(80);
const Kiln::String indirectRuler = ruler(58);
const Kiln::String pdpRuler = ruler(61);
// Three short of the header's, as the operators' tools know it.
const Kiln::String pdpClosingRuler = ruler(58);

constexpr const char* catalogueHeader =
     " Id                              Counter         Handle     Size      Type  Per-pipe Pkts/Bytes\n";
constexpr const char* directHeaderBoth =
     " Details                                        Packets         Bytes\n";
constexpr const char* directHeaderPackets =
     " Details                                                        Packets\n";
constexpr const char* directHeaderBytes =
     " Details                                                        Bytes\n";
constexpr const char* indirectHeader = "         Index            Packets              Bytes      \n";
constexpr const char* pdpTitle = "                      PDP Class Counters                     \n";
constexpr const char* pdpHeader = "     Interface                    Class            Packets   \n";

U64 numberOf(const Cell& cell) {
   return std::get<U64>(cell);
}

const char* textOf(const Cell& cell) {
   return std::get<Kiln::String>(cell).c_str();
}

// Of a view.
Kiln::String cellText(const Cell& cell, bool isAge) {
   if (const Kiln::String* const label = std::get_if<Kiln::String>(&cell)) {
      return *label;
   }
   if (const U64* const number = std::get_if<U64>(&cell)) {
      return isAge ? Kiln::durationText(static_cast<double>(*number) / 1000) : std::to_string(*number);
   }
   return std::holds_alternative<TableView::Unread>(cell) ? "never read" : "not supported";
}

// No formatted print, as a direct table may be long.
void padded(Kiln::TextOutput& out, std::string_view text, std::size_t width) {
   out.write(text);
   if (text.size() < width) {
      out.write(Kiln::String(width - text.size(), ' '));
   }
}

// Signed, since the layout is: a count with the top bit set prints as a negative number.
void printMacLine(Kiln::TextOutput& out, Cells cells) {
   out.print("%-40s    %15lld\n", textOf(cells[0]), static_cast<long long>(numberOf(cells[1])));
}

void printCatalogueLine(Kiln::TextOutput& out, Cells cells) {
   out.print("%3d %40s %10s %8d   %8s       %s     %s \n", static_cast<int>(numberOf(cells[0])),
             textOf(cells[1]), textOf(cells[2]), static_cast<int>(numberOf(cells[3])), textOf(cells[4]),
             textOf(cells[5]), textOf(cells[6]));
}

void printDirectLine(Kiln::TextOutput& out, Cells cells) {
   padded(out, std::get<Kiln::String>(cells[0]), cells.size() > 2 ? 46 : 64);
   for (const Cell& count : cells.subspan(1)) {
      out.write("  ");
      out.number(numberOf(count), 14);
   }
   out.write("\n");
}

// No formatted print, since a big table has tens of thousands of these lines. Signed, as above.
void printIndirectLine(Kiln::TextOutput& out, Cells cells) {
   out.number(numberOf(cells[0]), 14);
   for (const Cell& cell : cells.subspan(1)) {
      // The blanks are written apart from the numbers, so that columns never run together.
      out.write("     ");
      if (const U64* const count = std::get_if<U64>(&cell)) {
         out.number(static_cast<S64>(*count), 14);
      } else {
         out.write("           N/A");
      }
   }
   out.write("\n");
}

void printPdpLine(Kiln::TextOutput& out, Cells cells) {
   out.print("%14s %24s %18llu\n", textOf(cells[0]), textOf(cells[1]),
             static_cast<unsigned long long>(numberOf(cells[2])));
}

constexpr std::size_t gap = 2; // blanks before each column

std::size_t viewWidth(std::span<const TableView::Column> columns) {
   std::size_t width = 0;
   for (const TableView::Column& column : columns) {
      width += column.width + gap;
   }
   return width;
}

bool isLeft(const TableView::Column& column) {
   return column.holds == TableView::Holds::text || column.holds == TableView::Holds::remark;
}

} // namespace

void TextShow::tableBegin(const TableHeading& heading) {
   title_ = heading.title + heading.since;
   columns_ = heading.columns;
   layout_ = heading.layout;
   isHeadingDue_ = heading.time != HeadingTime::before;
   hasRows_ = false;
   notes_.clear();
   if (heading.time == HeadingTime::atOnce) {
      printHeading();
   }
}

void TextShow::chipBegin(const Kiln::String& name, bool isOneOfSeveral) {
   chip_ = isOneOfSeveral ? name : "";
}

void TextShow::lineBegin() {
   if (std::exchange(isLineOpen_, false)) {
      out_.write("\n");
   }
}

void TextShow::nameChip() {
   lineBegin();
   if (!chip_.empty()) {
      out_.write("Chip " + std::exchange(chip_, "") + ":\n");
   }
}

void TextShow::printHeading() {
   isHeadingDue_ = false;
   lineBegin();
   switch (layout_) {
   case TableLayout::overview:
      overview_.title = title_.substr(0, title_.find(" of chip "));
      overview_.columns.assign(columns_.begin(), columns_.end());
      break;
   case TableLayout::view:
      printViewHeading();
      break;
   case TableLayout::mac:
      out_.write(title_ + ":\n");
      break;
   case TableLayout::catalogue:
      nameChip();
      out_.write(catalogueRuler + catalogueHeader + catalogueRuler);
      break;
   case TableLayout::directTable:
      out_.write(title_ + "\n" + directRuler);
      // Of a table with one count, the column's name tells packets from bytes.
      out_.write(columns_.size() > 2                               ? directHeaderBoth
                 : std::string_view(columns_[1].name) == "Packets" ? directHeaderPackets
                                                                   : directHeaderBytes);
      out_.write(directRuler);
      break;
   case TableLayout::indirectTable:
      out_.write(title_ + "\n" + indirectRuler + indirectHeader + indirectRuler);
      break;
   case TableLayout::pdpInterface:
   case TableLayout::pdpAll:
      nameChip();
      out_.write(pdpTitle + pdpRuler + pdpHeader + pdpRuler);
      break;
   }
}

void TextShow::row(std::span<const Cell> cells) {
   if (isHeadingDue_) {
      printHeading();
   }
   hasRows_ = true;
   switch (layout_) {
   case TableLayout::view:
      return printViewLine(cells);
   case TableLayout::overview:
      overview_.rows.emplace_back(cells.begin(), cells.end());
      return;
   case TableLayout::mac:
      return printMacLine(out_, cells);
   case TableLayout::catalogue:
      return printCatalogueLine(out_, cells);
   case TableLayout::directTable:
      return printDirectLine(out_, cells);
   case TableLayout::indirectTable:
      return printIndirectLine(out_, cells);
   case TableLayout::pdpInterface:
   case TableLayout::pdpAll:
      return printPdpLine(out_, cells);
   }
}

void TextShow::tableEnd(bool hasClosingLine) {
   if (layout_ == TableLayout::view) {
      out_.write((hasRows_ ? "" : "  none\n") + ruler(viewWidth(columns_)));
   } else if (layout_ == TableLayout::mac && hasRows_) {
      out_.write("\n");
   } else if (layout_ == TableLayout::directTable && hasClosingLine) {
      out_.write(directRuler);
   } else if (layout_ == TableLayout::pdpInterface && hasClosingLine && !isHeadingDue_) {
      out_.write(pdpRuler);
   } else if (layout_ == TableLayout::pdpAll) {
      out_.write(pdpClosingRuler);
   }
   for (const Kiln::String& text : notes_) {
      chipNote(text);
   }
   if (layout_ == TableLayout::view) {
      out_.write("\n");
   }
}

void TextShow::noTable(const Kiln::String& /*title*/, const Kiln::String& why) {
   nameChip();
   out_.write(why + "\n");
}

void TextShow::uninitialized() {
   nameChip();
   out_.write(uninitializedText);
   isLineOpen_ = true;
}

void TextShow::chipNote(const Kiln::String& text) {
   if (layout_ == TableLayout::overview) {
      overview_.notes.push_back(text);
   } else {
      out_.write(text + "\n");
   }
}

void TextShow::documentEnd() {
   if (!overview_.rows.empty()) {
      lineBegin();
      printOverview();
   }
}

// In blocks of at most 80 columns, each with the first column: ages, counts and what else does not fit.
void TextShow::printOverview() {
   constexpr std::size_t widest = 80;
   std::vector<TableView::Column>& columns = overview_.columns;
   for (std::size_t i = 0; i < columns.size(); ++i) {
      std::size_t width = std::string_view(columns[i].name).size();
      for (const std::vector<Cell>& row : overview_.rows) {
         width = std::max(width, cellText(row[i], columns[i].holds == TableView::Holds::age).size());
      }
      columns[i].width = static_cast<unsigned>(width);
   }
   out_.write(overview_.title + "\n");
   std::vector<std::size_t> block{0};
   std::size_t used = columns[0].width + gap;
   for (std::size_t i = 1; i < columns.size(); ++i) {
      const bool isOfAnotherKind = !isLeft(columns[i - 1]) && columns[i].holds != columns[i - 1].holds;
      if (isOfAnotherKind || used + gap + columns[i].width > widest) {
         printBlock(block);
         block = {0};
         used = columns[0].width + gap;
      }
      block.push_back(i);
      used += gap + columns[i].width;
   }
   printBlock(block);
   for (const Kiln::String& text : overview_.notes) {
      out_.write(text + "\n");
   }
}

void TextShow::printBlock(std::span<const std::size_t> columns) {
   std::vector<TableView::Column> chosen;
   for (const std::size_t column : columns) {
      chosen.push_back(overview_.columns[column]);
   }
   columns_ = chosen;
   title_.clear();
   printViewHeading();
   for (const std::vector<Cell>& row : overview_.rows) {
      std::vector<Cell> cells;
      for (const std::size_t column : columns) {
         cells.push_back(row[column]);
      }
      printViewLine(cells);
   }
   out_.write(ruler(viewWidth(chosen)) + "\n");
   columns_ = {};
}

void TextShow::printViewHeading() {
   std::vector<Cell> names;
   for (const TableView::Column& column : columns_) {
      names.emplace_back(Kiln::String(column.name));
   }
   const Kiln::String line = ruler(viewWidth(columns_));
   out_.write((title_.empty() ? "" : title_ + "\n") + line);
   printViewLine(names);
   out_.write(line);
}

void TextShow::printViewLine(std::span<const Cell> cells) {
   Kiln::String line;
   for (std::size_t i = 0; i < columns_.size(); ++i) {
      const TableView::Column& column = columns_[i];
      const Kiln::String text = cellText(cells[i], column.holds == TableView::Holds::age);
      const Kiln::String padding(column.width > text.size() ? column.width - text.size() : 0, ' ');
      line += Kiln::String(gap, ' ') + (isLeft(column) ? text + padding : padding + text);
   }
   line.erase(line.find_last_not_of(' ') + 1); // a left-aligned last column ends at its text
   out_.write(line + "\n");
}

} // namespace ZelCounter

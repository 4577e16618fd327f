// Show operations as text, in layouts that operators and their tools know to the letter.
#pragma once

#include "counters/show/ShowOutput.h"
#include "kiln/TextOutput.h"

namespace ZelCounter {

class TextShow : public ShowOutput {
 public:
   // Does not own the descriptor. With echo, standard output gets the same text.
   TextShow(U32 fd, bool echo) : out_(static_cast<int>(fd), echo) {}

   void chipBegin(const Kiln::String& name, bool isOneOfSeveral) override;
   void documentEnd() override;

   bool ok() const override { return out_.ok(); }
   void tableBegin(const TableHeading& heading) override;
   void row(std::span<const Cell> cells) override;
   void note(const Kiln::String& text) override { notes_.push_back(text); }
   void unprintedNote(const Kiln::String& /*text*/) override {}
   void tableEnd(bool hasClosingLine) override;
   void noTable(const Kiln::String& title, const Kiln::String& why) override;
   void blankLine() override { out_.write("\n"); }
   void uninitialized() override;

 protected:
   void chipNote(const Kiln::String& text) override;

 private:
   void lineBegin();
   void nameChip();
   void printHeading();
   void printViewHeading();
   void printViewLine(std::span<const Cell> cells);
   void printOverview();
   void printBlock(std::span<const std::size_t> columns);

   Kiln::TextOutput out_;
   // Of the table that was begun last.
   Kiln::String title_;
   std::span<const TableView::Column> columns_;
   TableLayout layout_ = TableLayout::view;
   bool isHeadingDue_ = false;
   bool hasRows_ = false;
   std::vector<Kiln::String> notes_;
   Kiln::String chip_;       // to be named; empty for none
   bool isLineOpen_ = false; // a chip that isn't initialized said so
   // Of an overview, until the document's end.
   struct Overview {
      Kiln::String title;
      std::vector<TableView::Column> columns;
      std::vector<std::vector<Cell>> rows;
      std::vector<Kiln::String> notes;
   } overview_;
};

} // namespace ZelCounter

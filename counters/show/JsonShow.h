// Show operations as one JSON document for all the chips that a command is about: docs/command-channel.md.
#pragma once

#include "counters/show/ShowOutput.h"
#include "kiln/JsonWriter.h"
#include "kiln/TextOutput.h"

namespace ZelCounter {

class JsonShow : public ShowOutput {
 public:
   // Does not own the descriptor. With echo, standard output gets the same document.
   JsonShow(U32 fd, bool echo);

   void chipBegin(const Kiln::String& name, bool isOneOfSeveral) override;
   void chipEnd() override;
   void documentEnd() override;

   bool ok() const override { return out_.ok(); }
   void tableBegin(const TableHeading& heading) override;
   void row(std::span<const Cell> cells) override;
   void note(const Kiln::String& text) override { notes_.push_back(text); }
   void unprintedNote(const Kiln::String& text) override { note(text); }
   void tableEnd(bool hasClosingLine) override;
   void noTable(const Kiln::String& title, const Kiln::String& why) override;
   void blankLine() override {}
   void uninitialized() override;

 protected:
   void tableReading(const ToldReading& told) override;
   void chipNote(const Kiln::String& text) override { chipNotes_.push_back(text); }

 private:
   void tablesBegin();
   void notes(const std::vector<Kiln::String>& texts);
   void flush();

   Kiln::TextOutput out_;
   Kiln::JsonWriter json_;
   bool hasTables_ = false; // the chip's list of them was begun
   bool hasError_ = false;
   std::span<const TableView::Column> columns_;
   std::vector<Kiln::String> notes_;
   std::optional<ReadingState> reading_; // of the table, the worst
   Cleared cleared_;                     // of the table, the latest
   bool isSinceClear_ = false;           // else it tells how things are
   std::vector<Kiln::String> chipNotes_;
};

} // namespace ZelCounter

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

   void chipBegin(const Kiln::String& name) override;
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

 private:
   void tablesBegin();
   void flush();

   Kiln::TextOutput out_;
   Kiln::JsonWriter json_;
   bool hasTables_ = false; // the chip's list of them was begun
   bool hasError_ = false;
   std::span<const TableView::Column> columns_;
   std::vector<Kiln::String> notes_;
};

} // namespace ZelCounter

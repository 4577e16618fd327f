// Where a show operation writes to: tables of rows, one after the other, that become text for people or a document for
// programs.
#pragma once

#include "counters/show/TableView.h"

#include <span>
#include <vector>

namespace ZelCounter {

// How a table looks as text. A `view` is laid out by its columns. The tables of an `overview` have the same columns, and
// become one, folded where a line gets too long; it stands at the document's end. The others are fixed.
enum class TableLayout : U8 {
   view,
   overview,
   mac,
   catalogue,
   directTable,
   indirectTable,
   pdpInterface,
   pdpAll
};

// When the text's heading is printed: at the table's beginning, with the first row if there is one, or it was before.
enum class HeadingTime : U8 { atOnce, withFirstRow, before };

struct TableHeading {
   Kiln::String title;
   std::span<const TableView::Column> columns; // outlive the table's end
   TableLayout layout;
   HeadingTime time = HeadingTime::atOnce;
   Kiln::String since = {}; // of a view: the title goes on with it in text; programs have it as numbers
};

// Each table is begun, then has its rows, then its notes in any order among them, then its end.
class ShowOutput {
 public:
   using Cell = TableView::Cell;

   ShowOutput() = default;
   ShowOutput(const ShowOutput&) = delete;
   ShowOutput& operator=(const ShowOutput&) = delete;
   virtual ~ShowOutput() = default;

   // The tables that follow are of this chip, until its end. Of several chips, text names the one before what does not
   // tell itself.
   virtual void chipBegin(const Kiln::String& name, bool isOneOfSeveral) = 0;
   virtual void chipEnd() {}
   // The answer is whole: nothing may follow.
   virtual void documentEnd() {}

   // False when the output takes no more: a long table asks at each row and ends early.
   virtual bool ok() const = 0;

   virtual void tableBegin(const TableHeading& heading) = 0;
   // A cell for each column.
   virtual void row(std::span<const Cell> cells) = 0;
   virtual void note(const Kiln::String& text) = 0;
   // A note that text leaves to the trace, or says elsewhere.
   virtual void unprintedNote(const Kiln::String& text) = 0;
   // Without a closing line: a table that another continues, or that a failure cut short. Text only.
   virtual void tableEnd(bool hasClosingLine = true) = 0;

   // A reading of the table that ends next, or, with `hasTable` false, one that nothing is shown of.
   void reading(const ToldReading& told, bool hasTable = true);
   // What the chip's tables show changed while they were shown, as the activity lock was given up in between. Each text
   // is told once.
   void changed(const Kiln::String& text);
   // After the operations on a chip: a line for each change and each trouble of what they showed, and for each clear that
   // no title tells. All is forgotten then.
   void tellReadings(const Kiln::String& chipName);

   // Instead of a table.
   virtual void noTable(const Kiln::String& title, const Kiln::String& why) = 0;
   // Between tables. Text only.
   virtual void blankLine() = 0;
   // Instead of all tables of a chip whose construction is not complete.
   virtual void uninitialized() = 0;

   // In slices: may give way between two rows.
   void view(const TableView& table, TableLayout layout = TableLayout::view);

 protected:
   // Of the table that ends; nothing if it isn't made of readings.
   virtual void tableReading(const ToldReading& /*told*/) {}
   // Of a chip, after its tables.
   virtual void chipNote(const Kiln::String& text) = 0;

 private:
   // Of the chip.
   std::vector<ToldReading> readings_;
   std::vector<Kiln::String> changes_;
};

constexpr const char* uninitializedText = "Agent not initialized yet";
constexpr const char* symmetricText = "Symmetric counters cannot have a pipe option";

} // namespace ZelCounter

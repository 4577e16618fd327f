// Rows as objects, each written out at once: a table may be larger than what memory should hold twice.
#include "counters/show/JsonShow.h"

#include "kiln/Time.h"

#include <algorithm>
#include <cmath>
#include <utility>

namespace ZelCounter {

namespace {

Kiln::String keyOf(const TableView::Column& column) {
   return Kiln::String(column.name) + (column.holds == TableView::Holds::age ? "-ms" : "");
}

U64 milliseconds(double seconds) {
   return static_cast<U64>(std::llround(std::max(seconds, 0.0) * 1000));
}

} // namespace

JsonShow::JsonShow(U32 fd, bool echo)
     : out_(static_cast<int>(fd), echo), json_(Kiln::JsonWriter::Style::compact) {
   json_.begin("", '{');
   json_.begin("chips", '[');
}

void JsonShow::chipBegin(const Kiln::String& name, bool /*isOneOfSeveral*/) {
   hasTables_ = false;
   hasError_ = false;
   json_.newLine();
   json_.begin("", '{');
   json_.value("chip", name);
}

void JsonShow::flush() {
   out_.write(json_.text());
   json_.textDel();
}

// The list is begun by the first table, since a chip that is not initialized has an error in its place.
void JsonShow::tablesBegin() {
   if (!hasTables_) {
      json_.begin("tables", '[');
   }
   hasTables_ = true;
}

void JsonShow::chipEnd() {
   if (!hasError_) {
      tablesBegin();
   }
   if (hasTables_) {
      json_.end(']');
      notes(std::exchange(chipNotes_, {}));
   }
   json_.end('}');
}

void JsonShow::notes(const std::vector<Kiln::String>& texts) {
   json_.begin("notes", '[');
   for (const Kiln::String& text : texts) {
      json_.value("", std::string_view(text));
   }
   json_.end(']');
}

void JsonShow::tableReading(const ToldReading& told) {
   reading_ = reading_ ? reading_->with(told.state) : told.state;
   if (told.cleared && (!cleared_ || cleared_->time < told.cleared->time)) {
      cleared_ = told.cleared;
   }
}

void JsonShow::documentEnd() {
   json_.end(']');
   json_.end('}');
   flush();
}

void JsonShow::tableBegin(const TableHeading& heading) {
   columns_ = heading.columns;
   isSinceClear_ = (heading.layout != TableLayout::view && heading.layout != TableLayout::overview) ||
                   !heading.since.empty();
   notes_.clear();
   tablesBegin();
   json_.newLine();
   json_.begin("", '{');
   json_.value("title", heading.title);
   json_.begin("counters", '[');
   for (const TableView::Column& column : columns_) {
      if (column.holds == TableView::Holds::counter || column.holds == TableView::Holds::age) {
         json_.value("", std::string_view(keyOf(column)));
      }
   }
   json_.end(']');
   json_.begin("rows", '[');
}

void JsonShow::row(std::span<const Cell> cells) {
   json_.newLine();
   json_.begin("", '{');
   std::vector<const TableView::Column*> unsupported;
   for (std::size_t i = 0; i < columns_.size(); ++i) {
      const TableView::Column& column = columns_[i];
      if (const U64* const number = std::get_if<U64>(&cells[i])) {
         json_.value(keyOf(column), *number);
      } else if (column.holds == TableView::Holds::text) {
         json_.value(column.name, std::string_view(std::get<Kiln::String>(cells[i])));
      } else if (column.holds != TableView::Holds::remark) {
         json_.null(keyOf(column));
         if (std::holds_alternative<TableView::Unsupported>(cells[i])) {
            unsupported.push_back(&column);
         }
      }
   }
   if (!unsupported.empty()) {
      json_.begin("not-supported", '[');
      for (const TableView::Column* const column : unsupported) {
         json_.value("", std::string_view(keyOf(*column)));
      }
      json_.end(']');
   }
   json_.end('}');
   flush();
}

void JsonShow::tableEnd(bool /*hasClosingLine*/) {
   json_.end(']');
   if (const std::optional<ReadingState> state = std::exchange(reading_, std::nullopt)) {
      if (state->age) {
         json_.value("age-ms", milliseconds(*state->age));
      } else {
         json_.null("age-ms");
      }
      if (state->trouble.empty()) {
         json_.null("status");
      } else {
         json_.value("status", std::string_view(state->trouble));
      }
      const Cleared cleared = std::exchange(cleared_, std::nullopt);
      if (cleared) {
         json_.value("cleared-age-ms", milliseconds(Kiln::System::currentTime() - cleared->time));
         json_.value("cleared-by", std::string_view(cleared->who));
      } else if (isSinceClear_) {
         json_.null("cleared-age-ms");
         json_.null("cleared-by");
      }
   }
   notes(notes_);
   json_.end('}');
   flush();
}

// An empty table with a note, so that programs need not know another form.
void JsonShow::noTable(const Kiln::String& title, const Kiln::String& why) {
   tableBegin({title, {}, TableLayout::view});
   note(why);
   tableEnd(true);
}

void JsonShow::uninitialized() {
   // Once, though several operations of one command may say so.
   if (!hasTables_ && !hasError_) {
      json_.value("error", std::string_view(uninitializedText));
      hasError_ = true;
   }
}

} // namespace ZelCounter

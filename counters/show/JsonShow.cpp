// Rows as objects, written out row by row, since a table may be larger than what memory should hold twice.
#include "counters/show/JsonShow.h"

namespace ZelCounter {

JsonShow::JsonShow(U32 fd, bool echo)
     : out_(static_cast<int>(fd), echo), json_(Kiln::JsonWriter::Style::compact) {
   json_.begin("", '{');
   json_.begin("chips", '[');
}

void JsonShow::chipBegin(const Kiln::String& name) {
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
   }
   json_.end('}');
}

void JsonShow::documentEnd() {
   json_.end(']');
   json_.end('}');
   flush();
}

void JsonShow::tableBegin(const TableHeading& heading) {
   columns_ = heading.columns;
   notes_.clear();
   tablesBegin();
   json_.newLine();
   json_.begin("", '{');
   json_.value("title", heading.title);
   json_.begin("counters", '[');
   for (const TableView::Column& column : columns_) {
      if (column.holds == TableView::Holds::counter) {
         json_.value("", std::string_view(column.name));
      }
   }
   json_.end(']');
   json_.begin("rows", '[');
}

void JsonShow::row(std::span<const Cell> cells) {
   json_.newLine();
   json_.begin("", '{');
   for (std::size_t i = 0; i < columns_.size(); ++i) {
      const TableView::Column& column = columns_[i];
      if (const U64* const number = std::get_if<U64>(&cells[i])) {
         json_.value(column.name, *number);
      } else if (column.holds == TableView::Holds::text) {
         json_.value(column.name, std::string_view(std::get<Kiln::String>(cells[i])));
      } else if (column.holds != TableView::Holds::remark) {
         json_.null(column.name);
      }
   }
   json_.end('}');
   flush();
}

void JsonShow::tableEnd(bool /*hasClosingLine*/) {
   json_.end(']');
   json_.begin("notes", '[');
   for (const Kiln::String& text : notes_) {
      json_.value("", std::string_view(text));
   }
   json_.end(']');
   json_.end('}');
   flush();
}

void JsonShow::noTable(const Kiln::String& title, const Kiln::String& why) {
   tableBegin({title, {}, TableLayout::view});
   note(why);
   tableEnd(true);
}

void JsonShow::uninitialized() {
   if (!hasTables_ && !hasError_) {
      json_.value("error", std::string_view(uninitializedText));
      hasError_ = true;
   }
}

} // namespace ZelCounter

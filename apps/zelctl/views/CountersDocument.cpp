// From members to columns and cells.
#include "apps/zelctl/views/CountersDocument.h"

#include "apps/zelctl/terminal/Utf8.h"
#include "apps/zelctl/views/JsonReader.h"

#include <algorithm>
#include <stdexcept>

namespace ZelCtl {

namespace {

using Kiln::String;
using Kind = JsonValue::Kind;

const JsonValue& need(const JsonValue& object, const char* name, Kind kind) {
   const JsonValue* const found = object.member(name);
   if (found == nullptr || found->kind != kind) {
      throw std::runtime_error(String("it has no proper \"") + name + "\"");
   }
   return *found;
}

String textOf(const JsonValue& value) {
   switch (value.kind) {
   case Kind::null:
      return "-";
   case Kind::boolean:
      return value.truth ? "true" : "false";
   case Kind::number:
      return std::to_string(value.number);
   case Kind::string:
      return printable(value.text);
   case Kind::list:
   case Kind::object:
      break;
   }
   throw std::runtime_error("a row holds more than numbers and texts");
}

std::vector<ShownColumn> columnsOf(const JsonValue& rows, const JsonValue& counters) {
   std::vector<ShownColumn> columns;
   for (const JsonValue& row : rows.items) {
      for (const auto& [key, value] : row.members) {
         const String& name = key;
         if (std::any_of(columns.begin(), columns.end(),
                         [&](const ShownColumn& one) { return one.heading == name; })) {
            continue;
         }
         const bool isCounter =
              std::any_of(counters.items.begin(), counters.items.end(),
                          [&](const JsonValue& one) { return one.kind == Kind::string && one.text == name; });
         columns.push_back({name, isCounter ? ShownColumn::Kind::counter : ShownColumn::Kind::key});
      }
   }
   return columns;
}

ShownRow rowOf(const JsonValue& members, const std::vector<ShownColumn>& columns) {
   ShownRow row;
   for (const ShownColumn& column : columns) {
      const JsonValue* const value = members.member(column.heading);
      const bool isCount =
           value != nullptr && column.kind == ShownColumn::Kind::counter && value->kind == Kind::number;
      row.cells.push_back(
           {value != nullptr ? textOf(*value) : "", isCount ? std::optional(value->number) : std::nullopt});
   }
   return row;
}

// With the chip's name, if it doesn't say it.
String titleOf(const String& chip, const JsonValue& object) {
   const String title = printable(need(object, "title", Kind::string).text);
   const String ending = "chip " + chip;
   const bool saysChip = title.size() >= ending.size() &&
                         title.compare(title.size() - ending.size(), ending.size(), ending) == 0;
   return saysChip ? title : chip + ": " + title;
}

ShownTable tableOf(const String& chip, const JsonValue& object) {
   const JsonValue& rows = need(object, "rows", Kind::list);
   ShownTable table{titleOf(chip, object), columnsOf(rows, need(object, "counters", Kind::list)), {}};
   for (const JsonValue& row : rows.items) {
      table.rows.push_back(rowOf(row, table.columns));
   }
   for (ShownColumn& column : table.columns) {
      column.heading = printable(column.heading);
   }
   for (const JsonValue& note : need(object, "notes", Kind::list).items) {
      table.notes.push_back(textOf(note));
   }
   return table;
}

} // namespace

std::vector<ShownTable> readCountersDocument(std::string_view text) {
   std::vector<ShownTable> tables;
   try {
      const JsonValue document = readJson(text);
      for (const JsonValue& chip : need(document, "chips", Kind::list).items) {
         const String name = printable(need(chip, "chip", Kind::string).text);
         if (chip.member("error") != nullptr) {
            tables.push_back({name + ": " + printable(need(chip, "error", Kind::string).text), {}, {}});
            continue;
         }
         for (const JsonValue& table : need(chip, "tables", Kind::list).items) {
            tables.push_back(tableOf(name, table));
         }
      }
   } catch (const std::exception& error) {
      throw std::runtime_error(String("the agent's answer cannot be read, ") + error.what() +
                               ": are agent and client of the same version?");
   }
   return tables;
}

} // namespace ZelCtl

// Turns the document's members into columns and cells.
#include "apps/zelctl/views/CountersDocument.h"

#include "apps/zelctl/terminal/Utf8.h"
#include "apps/zelctl/views/JsonReader.h"
#include "kiln/Choices.h"

#include <algorithm>
#include <nlohmann/json.hpp>
#include <set>
#include <stdexcept>
#include <utility>

namespace ZelCtl {

namespace {

using Kiln::String;
using Type = Json::value_t;

const Json& need(const Json& object, const char* name, Type type) {
   const auto found = object.find(name);
   if (found == object.end() || found->type() != type) {
      throw std::runtime_error(String("it has no valid \"") + name + "\"");
   }
   return *found;
}

String needText(const Json& object, const char* name) {
   return printable(need(object, name, Type::string).get_ref<const String&>());
}

constexpr const char* unsupportedMember = "not-supported"; // of a row: the counters that it doesn't have

bool isUnsupported(const Json& row, const String& name) {
   const auto list = row.find(unsupportedMember);
   return list != row.end() && std::ranges::find(*list, Json(name)) != list->end();
}

String textOf(const Json& value) {
   switch (value.type()) {
   case Type::null:
      return "never read";
   case Type::boolean:
      return value.get<bool>() ? "true" : "false";
   case Type::number_unsigned:
      return std::to_string(value.get<U64>());
   case Type::string:
      return printable(value.get_ref<const String&>());
   default:
      throw std::runtime_error("it has a row with a value that is neither a number nor text");
   }
}

std::vector<ShownColumn> columnsOf(const Json& rows, const Json& counters) {
   std::set<String> counterNames;
   for (const Json& counter : counters) {
      if (counter.is_string()) {
         counterNames.insert(counter.get<String>());
      }
   }
   std::vector<ShownColumn> columns;
   for (const Json& row : rows) {
      if (!row.is_object()) {
         throw std::runtime_error("it has a row that is not an object");
      }
      for (const auto& [name, value] : row.items()) {
         if (name != unsupportedMember &&
             std::ranges::find(columns, name, &ShownColumn::heading) == columns.end()) {
            const bool isCounter = counterNames.contains(name);
            columns.push_back({name, isCounter ? ShownColumn::Kind::counter : ShownColumn::Kind::key});
         }
      }
   }
   return columns;
}

ShownRow rowOf(const Json& members, const std::vector<ShownColumn>& columns) {
   ShownRow row;
   for (const ShownColumn& column : columns) {
      const auto found = members.find(column.heading);
      ShownCell cell;
      if (found != members.end()) {
         cell.text = isUnsupported(members, column.heading) ? "not supported" : textOf(*found);
         if (column.kind == ShownColumn::Kind::counter && found->is_number_unsigned()) {
            cell.count = found->get<U64>();
         }
      }
      row.cells.push_back(std::move(cell));
   }
   return row;
}

// The table's title, with the chip's name before it if it doesn't end in it. Of one that does, the agent's text says in
// the title when it was cleared; of others, the notes do.
String titleOf(const String& chip, const Json& object) {
   String title = needText(object, "title");
   if (!title.ends_with("chip " + chip)) {
      return chip + ": " + title;
   }
   const auto age = object.find("cleared-age-ms");
   if (age == object.end()) {
      return title;
   }
   return title +
          (age->is_number_unsigned()
                ? ", since the clear " + Kiln::durationText(static_cast<double>(age->get<U64>()) / 1e3) +
                       " ago by " + needText(object, "cleared-by")
                : ", never cleared");
}

std::vector<String> notesOf(const Json& object) {
   std::vector<String> notes;
   for (const Json& note : need(object, "notes", Type::array)) {
      notes.push_back(textOf(note));
   }
   return notes;
}

// The agent rounds ages to milliseconds, and told them at some time between the two.
std::optional<SampleTime> sampledOf(const Json& object, double asked, double answered) {
   constexpr double rounding = 1e-3; // seconds
   const auto age = object.find("age-ms");
   const auto status = object.find("status");
   if (age == object.end() || !age->is_number_unsigned() || (status != object.end() && !status->is_null())) {
      return std::nullopt;
   }
   const double seconds = static_cast<double>(age->get<U64>()) / 1e3;
   return SampleTime{asked - seconds - rounding, answered - seconds + rounding};
}

// A counter NAME-ms is an age: said in words, and without a rate.
void sayAges(ShownTable* table, std::size_t index) {
   constexpr std::string_view suffix = "-ms";
   ShownColumn& column = table->columns[index];
   if (column.kind != ShownColumn::Kind::counter || !column.heading.ends_with(suffix)) {
      return;
   }
   column.kind = ShownColumn::Kind::other;
   column.heading.erase(column.heading.size() - suffix.size());
   for (ShownRow& row : table->rows) {
      ShownCell& cell = row.cells[index];
      if (const auto milliseconds = std::exchange(cell.count, std::nullopt)) {
         cell.text = Kiln::durationText(static_cast<double>(*milliseconds) / 1000);
      }
   }
}

ShownTable tableOf(const String& chip, const Json& object, double asked, double answered) {
   const Json& rows = need(object, "rows", Type::array);
   ShownTable table{titleOf(chip, object), columnsOf(rows, need(object, "counters", Type::array)), {}};
   for (const Json& row : rows) {
      table.rows.push_back(rowOf(row, table.columns));
      table.rows.back().sampled = sampledOf(object, asked, answered);
   }
   for (std::size_t i = 0; i < table.columns.size(); ++i) {
      sayAges(&table, i);
      table.columns[i].heading = printable(table.columns[i].heading);
   }
   table.notes = notesOf(object);
   return table;
}

} // namespace

std::vector<ShownTable> readCountersDocument(std::string_view text, double asked, double answered) {
   std::vector<ShownTable> tables;
   try {
      const Json document = readJson(text);
      for (const Json& chip : need(document, "chips", Type::array)) {
         const String name = needText(chip, "chip");
         if (chip.contains("error")) {
            tables.push_back({name + ": " + needText(chip, "error"), {}, {}});
            continue;
         }
         for (const Json& table : need(chip, "tables", Type::array)) {
            tables.push_back(tableOf(name, table, asked, answered));
         }
         if (const auto notes = chip.find("notes"); notes != chip.end() && !notes->empty()) {
            tables.push_back({"", {}, {}, notesOf(chip)});
         }
      }
   } catch (const std::exception& error) {
      throw std::runtime_error(String("cannot read the agent's answer: ") + error.what() +
                               "; are agent and client of the same version?");
   }
   return tables;
}

} // namespace ZelCtl

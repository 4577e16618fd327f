// What a show command says as text and as a document, as rows of words that can be compared.
#pragma once

#include "apps/zelctl/views/JsonReader.h"

#include <algorithm>
#include <iterator>
#include <nlohmann/json.hpp>
#include <set>
#include <sstream>
#include <string>
#include <vector>

namespace ZelTest {

using Kiln::String;
using ZelCtl::Json;
using Words = std::vector<String>;

inline Words wordsOf(const String& text) {
   std::istringstream words(text);
   return {std::istream_iterator<String>(words), {}};
}

// What follows the title of a table that counts since a clear.
inline constexpr const char* sinceMark = ", since the clear";
inline constexpr const char* neverMark = ", never cleared";

// Throws if there is none.
inline const Json::array_t& listOf(const Json& object, const char* name) {
   return object.at(name).get_ref<const Json::array_t&>();
}

inline constexpr const char* unsupported = "not-supported"; // of a row: names those of its nulls

inline Words cellWords(const Json& cell) {
   return cell.is_number_unsigned() ? Words{std::to_string(cell.get<U64>())} : wordsOf(cell.get<String>());
}

// A null as the text says it.
inline Words nullWords(const Json& row, const String& column) {
   const Json::array_t none;
   const auto& names = row.contains(unsupported) ? listOf(row, unsupported) : none;
   return wordsOf(std::ranges::count(names, Json(column)) != 0 ? "not supported" : "never read");
}

inline std::vector<const Json*> tablesOf(const Json& document) {
   std::vector<const Json*> tables;
   for (const Json& chip : listOf(document, "chips")) {
      for (const Json& table : listOf(chip, "tables")) {
         tables.push_back(&table);
      }
   }
   return tables;
}

// The document's rows as words.
inline std::vector<Words> rowsOf(const Json& document) {
   std::vector<Words> rows;
   for (const Json* table : tablesOf(document)) {
      for (const Json& row : listOf(*table, "rows")) {
         Words& words = rows.emplace_back();
         for (const auto& [column, cell] : row.items()) {
            const Words more = cell.is_null()          ? nullWords(row, column)
                               : column == unsupported ? Words()
                                                       : cellWords(cell);
            words.insert(words.end(), more.begin(), more.end());
         }
      }
   }
   return rows;
}

// What is told of the chips' readings, in the document and in the text.
inline std::vector<String> chipNotesOf(const Json& document) {
   std::vector<String> notes;
   for (const Json& chip : listOf(document, "chips")) {
      for (const Json& note : listOf(chip, "notes")) {
         notes.push_back(note.get<String>());
      }
   }
   return notes;
}
inline std::vector<String> chipNotesOf(const String& text) {
   std::vector<String> notes;
   std::istringstream lines(text);
   for (String line; std::getline(lines, line);) {
      if (line.starts_with("Zel")) {
         notes.push_back(line);
      }
   }
   return notes;
}

// The text's rows as words, without titles, headings, rulers and notes.
inline std::vector<Words> rowsOf(const String& text, const Json& document) {
   std::set<Words> others = {{},
                             {"none"},
                             wordsOf("Chip Zel0:"),
                             wordsOf("Chip Zel1:"),
                             wordsOf("Chip Zel2:"),
                             wordsOf("Details Packets"),
                             wordsOf("Details Bytes"),
                             wordsOf("Details Packets Bytes"),
                             wordsOf("Index Packets Bytes"),
                             wordsOf("Interface Class Packets"),
                             wordsOf("Point Reason Packets"),
                             wordsOf("Interface Point Reason Packets"),
                             wordsOf("Pipe Stage In Out Dropped"),
                             wordsOf("Pipe Place Decides Packets"),
                             wordsOf("Pipe Counter Packets or cells Bytes State"),
                             wordsOf("Id Counter Handle Size Type Per-pipe Pkts/Bytes")};
   for (const String& note : chipNotesOf(text)) {
      others.insert(wordsOf(note));
   }
   for (const Json* table : tablesOf(document)) {
      const String& title = table->at("title").get<String>();
      others.insert(wordsOf(title));
      others.insert(wordsOf(title + ":"));
      for (const Json& note : listOf(*table, "notes")) {
         others.insert(wordsOf(note.get<String>()));
      }
   }
   std::vector<Words> rows;
   std::istringstream lines(text);
   for (String line; std::getline(lines, line);) {
      Words words = wordsOf(line.substr(0, std::min(line.find(sinceMark), line.find(neverMark))));
      if (line.compare(0, 3, "===") == 0 || others.count(words) != 0) {
         continue;
      }
      if (const auto absent = std::ranges::find(words, "N/A"); absent != words.end()) {
         words.insert(words.erase(absent), {"not", "supported"});
      }
      // The remark behind each counter of the traffic manager.
      words.erase(std::find_if(words.begin(), words.end(),
                               [](const String& word) { return word == "ok" || word == "Error"; }),
                  words.end());
      const Words unread = {"not", "read", "yet"};
      if (words.size() > unread.size() && std::equal(unread.rbegin(), unread.rend(), words.rbegin())) {
         words.resize(words.size() - unread.size());
      }
      rows.push_back(words);
   }
   return rows;
}

} // namespace ZelTest

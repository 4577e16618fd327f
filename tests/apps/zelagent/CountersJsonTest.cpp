// The JSON document of a show command: it agrees with the text, and marks what the text cannot show.
#include "apps/zelctl/views/JsonReader.h"
#include "counters/ZelCounters.h"
#include "tests/apps/zelagent/AgentRig.h"
#include "tests/support/LoggedMessages.h"

#include <algorithm>
#include <gmock/gmock.h>
#include <nlohmann/json.hpp>
#include <set>
#include <sstream>
#include <stdexcept>

namespace {

using Kiln::String;
using ZelCtl::Json;
using ZelCtl::readJson;
using Words = std::vector<String>;

Words wordsOf(const String& text) {
   std::istringstream words(text);
   return {std::istream_iterator<String>(words), {}};
}

// What follows the title of a table that counts since a clear.
const char* const sinceMark = ", since the clear";
const char* const neverMark = ", never cleared";

// Throws if there is none.
const Json::array_t& listOf(const Json& object, const char* name) {
   return object.at(name).get_ref<const Json::array_t&>();
}

constexpr const char* unsupported = "not-supported"; // of a row: names those of its nulls

Words cellWords(const Json& cell) {
   return cell.is_number_unsigned() ? Words{std::to_string(cell.get<U64>())} : wordsOf(cell.get<String>());
}

// A null as the text says it.
Words nullWords(const Json& row, const String& column) {
   const Json::array_t none;
   const auto& names = row.contains(unsupported) ? listOf(row, unsupported) : none;
   return wordsOf(std::ranges::count(names, Json(column)) != 0 ? "not supported" : "never read");
}

std::vector<const Json*> tablesOf(const Json& document) {
   std::vector<const Json*> tables;
   for (const Json& chip : listOf(document, "chips")) {
      for (const Json& table : listOf(chip, "tables")) {
         tables.push_back(&table);
      }
   }
   return tables;
}

// The document's rows as words.
std::vector<Words> rowsOf(const Json& document) {
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
std::vector<String> chipNotesOf(const Json& document) {
   std::vector<String> notes;
   for (const Json& chip : listOf(document, "chips")) {
      for (const Json& note : listOf(chip, "notes")) {
         notes.push_back(note.get<String>());
      }
   }
   return notes;
}
std::vector<String> chipNotesOf(const String& text) {
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
std::vector<Words> rowsOf(const String& text, const Json& document) {
   std::set<Words> others = {{},
                             {"none"},
                             wordsOf("Chip Zel0:"),
                             wordsOf("Chip Zel1:"),
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
      rows.push_back(words);
   }
   return rows;
}

// Checks that counters are numbers or null, and that the other members identify the row within its table.
void expectLabelled(const Json& table) {
   std::set<String> counters;
   for (const Json& name : listOf(table, "counters")) {
      counters.insert(name.get<String>());
   }
   std::set<std::vector<Words>> labels;
   for (const Json& row : listOf(table, "rows")) {
      std::vector<Words> label;
      for (const auto& [column, cell] : row.items()) {
         if (counters.count(column) == 0 && column != unsupported) {
            label.push_back(cellWords(cell));
         }
         EXPECT_TRUE(counters.count(column) == 0 || !cell.is_string()) << column << " " << cell;
      }
      EXPECT_EQ(row.size(), label.size() + counters.size() + row.count(unsupported));
      EXPECT_TRUE(labels.insert(label).second) << testing::PrintToString(label);
   }
}

class CountersJson : public ZelTest::AgentRig {
 protected:
   // Runs the command twice, for text and for a document, and compares them.
   void expectSame(const String& command) {
      SCOPED_TRACE(command);
      const String text = ask(command).text;
      const ZelTest::Asked asked = ask(command + " json");
      EXPECT_EQ(asked.error, "");
      const Json document = readJson(asked.text);
      EXPECT_EQ(rowsOf(document), rowsOf(text, document));
      EXPECT_EQ(chipNotesOf(document), chipNotesOf(text));
      rowCount_ += rowsOf(document).size();
      for (const Json* table : tablesOf(document)) {
         expectLabelled(*table);
         const bool hasTitle = text.find(table->at("title").get<String>()) != String::npos;
         EXPECT_TRUE(hasTitle || listOf(*table, "rows").empty() || command == "show info");
      }
   }

   std::size_t rowCount_ = 0;
};

// Every show but those of all and of the catalogue.
const Words shows = {"show table ingressPortCount",
                     "show table vlanB",
                     "show table ingressPortCount pipe 1",
                     "show table vlanB pipe 1",
                     "show mac",
                     "show mac intf Ethernet7",
                     "show pdp",
                     "show pdp intf Ethernet2",
                     "show pipeline",
                     "show pipeline stage egress pipe 1",
                     "show drop",
                     "show drop interface Ethernet1",
                     "show mau-deparser-drop",
                     "show mau-deparser-drop intf Ethernet3",
                     "show mau-deparser-drop pipe 0",
                     "show traffic-manager",
                     "show traffic-manager pipe 1",
                     "chip Zel1 show mac"};

TEST_F(CountersJson, SaysWhatTheTextSays) {
   start({.chips = 2, .pipes = 2, .ports = 4});
   auto loop = Kiln::ActivityManager::instance();
   for (const char* const command : {"show table", "show pdp", "show mac"}) {
      expectSame(command); // nothing has been read yet
   }
   loop->advance(2.0);
   agent_->traffic().onIs(true);
   loop->advance(4.0);
   agent_->traffic().onIs(false);
   loop->advance(4.0);
   expectSame("show info");
   for (const String& keywords : shows) {
      rowCount_ = 0;
      expectSame(keywords);
      EXPECT_TRUE(rowCount_ > 0 || keywords == "show table vlanB pipe 1") << keywords;
      expectSame(keywords + " nonzero");
      EXPECT_EQ(chipNotesOf(readJson(ask(keywords + " json").text)), Words()) << "all is well";
   }
   expectSame("show table nonzero");
   expectSame("show table pipe 0 nonzero");
   expectSame("show nonzero");
}

// Traffic runs on, and for a minute every read fails, or is never answered.
TEST_F(CountersJson, TellsTheAgeOfEveryViewOfAChipThatIsSilent) {
   ZelTest::LoggedMessages logged;
   start({.chips = 2, .pipes = 2, .ports = 4});
   agent_->traffic().onIs(true);
   advance(10.0);
   for (const String& keywords : shows) {
      ask(keywords); // some are read only then
   }
   for (const char* const read :
        {"bf_port_mac_stats_hw_async_get", "bf_tm_pipe_counter_get", "bf_pipe_path_counter_get",
         "bf_pipe_mau_drop_get", "bf_pipe_deparser_drop_get", "counterHwSyncDirect", "counterHwSyncIndirect",
         "pipe_mgr_stat_database_sync"}) {
      agent_->fleet().faults().failNext(read, 5, 1000000);
   }
   advance(60.0);
   for (const String& keywords : shows) {
      if (keywords == "show table vlanB pipe 1") {
         continue; // refused
      }
      SCOPED_TRACE(keywords);
      expectSame(keywords);
      const Json document = readJson(ask(keywords + " json").text);
      EXPECT_THAT(chipNotesOf(document), testing::Each(testing::HasSubstr(": HW access fails")));
      for (const Json& chip : listOf(document, "chips")) {
         EXPECT_FALSE(listOf(chip, "notes").empty());
      }
      for (const Json* table : tablesOf(document)) {
         if (!table->contains("status")) {
            EXPECT_TRUE(listOf(*table, "rows").empty()) << *table;
            continue;
         }
         EXPECT_EQ(table->at("status"), "HW access fails");
         EXPECT_TRUE(table->at("age-ms").is_null() || table->at("age-ms") >= 60000U) << *table;
      }
   }
   EXPECT_THAT(ask("show health").text, testing::HasSubstr("  silent  "));
   EXPECT_THAT(logged.take(),
               testing::UnorderedElementsAre(testing::StartsWith("ZEL_COUNTERS_CHIP_SILENT Chip Zel0 "),
                                             testing::StartsWith("ZEL_COUNTERS_CHIP_SILENT Chip Zel1 ")));
   agent_->fleet().faults().clear();
   advance(10.0);
   EXPECT_THAT(logged.take(),
               testing::UnorderedElementsAre(testing::StartsWith("ZEL_COUNTERS_CHIP_ANSWERS Chip Zel0 "),
                                             testing::StartsWith("ZEL_COUNTERS_CHIP_ANSWERS Chip Zel1 ")));
   EXPECT_EQ(chipNotesOf(ask("show mac").text), Words());
   {
      const auto lock = Kiln::ActivityLockAnchor::lock();
      agent_->fleet().completions().modeIs({SoftChip::CompletionMode::Kind::lost});
   }
   advance(60.0);
   for (const char* const keywords : {"show mac", "show drop", "show table ingressPortCount", "show pdp"}) {
      expectSame(keywords);
      EXPECT_THAT(chipNotesOf(ask(keywords).text), testing::Each(testing::HasSubstr("s ago: no answer")));
   }
   EXPECT_THAT(logged.take(), testing::SizeIs(2));
}

TEST_F(CountersJson, TellsWhenEachViewWasClearedAndByWhom) {
   start({.chips = 2, .pipes = 2, .ports = 4});
   advance(10.0);
   ask("chip Zel0 clear");
   advance(7.0);
   for (const String& keywords : shows) {
      if (keywords == "show table vlanB pipe 1") {
         continue; // refused
      }
      SCOPED_TRACE(keywords);
      expectSame(keywords);
      const Json document = readJson(ask(keywords + " json").text);
      const bool isOther = keywords.find("mau-") != String::npos; // has its own clear only
      for (const Json& chip : listOf(document, "chips")) {
         const bool isCleared = chip.at("chip") == "Zel0" && !isOther;
         for (const Json& table : listOf(chip, "tables")) {
            if (!isCleared) {
               EXPECT_TRUE(!table.contains("cleared-by") || table.at("cleared-by").is_null()) << table;
               continue;
            }
            EXPECT_EQ(table.at("cleared-age-ms"), 7000U) << table;
            EXPECT_EQ(table.at("cleared-by"), "the test");
         }
         const String text = ask("chip " + chip.at("chip").get<String>() + " " + keywords).text;
         EXPECT_EQ(isCleared, text.find("7 s ago by the test") != String::npos) << text;
      }
   }
   // A part alone: the title has no room for two.
   ask("chip Zel0 clear table ingressPortDropCount pipe 1");
   advance(2.0);
   const String drops = ask("chip Zel0 show drop").text;
   EXPECT_THAT(drops, testing::HasSubstr("Drops by port, chip Zel0, since the clears below"));
   EXPECT_THAT(chipNotesOf(drops),
               testing::Contains("Zel0, ingressPortDropCount pipe 1: cleared 2 s ago by the test"));
   expectSame("chip Zel0 show drop");
   // The port begins again.
   const auto port = agent_->portOf("Ethernet1");
   port.chip.rmonIs(port.devicePort, 0, 50);
   advance(2.0);
   ask("clear mac");
   port.chip.rmonIs(port.devicePort, 0, 7);
   advance(2.0);
   ask("show mac json");
   EXPECT_EQ(ask("show mac intf Ethernet1").text.find("cleared"), String::npos);
}

TEST_F(CountersJson, SaysWhyThereIsNothing) {
   start({.chips = 2, .pipes = 1, .ports = 1});
   const auto notesOf = [](const Json& table) {
      EXPECT_TRUE(listOf(table, "rows").empty());
      return listOf(table, "notes").at(0).get<String>();
   };
   const Json unfetched = readJson(ask("chip Zel0 show pdp json").text);
   EXPECT_EQ(notesOf(*tablesOf(unfetched).at(0)), "PDP counters not fetched yet");
   advance(4.0);

   agent_->fleet().faults().failNext("counterReadIndirectStart", -5, 1);
   const Json failed = readJson(ask("chip Zel0 show table ingressPortCount json").text);
   EXPECT_EQ(notesOf(*tablesOf(failed).at(0)), "Indirect start error: -5");

   agent_->countersMgr().zelCounters(0)->initializedIs(false);
   const Json document = readJson(ask("show mac json").text);
   const Json::array_t& chips = listOf(document, "chips");
   EXPECT_EQ(chips.at(0).at("error"), "Agent not initialized yet");
   EXPECT_EQ(chips.at(0).size(), 2U) << "and no tables";
   EXPECT_EQ(listOf(chips.at(1), "tables").size(), 1U);
}

} // namespace

// The JSON document of a show command: it agrees with the text, and marks what the text cannot show.
#include "counters/ZelCounters.h"
#include "tests/apps/zelagent/AgentRig.h"
#include "tests/support/LoggedMessages.h"
#include "tests/support/ShownRows.h"

#include <algorithm>
#include <gmock/gmock.h>
#include <set>
#include <stdexcept>

namespace {

using Kiln::String;
using ZelCtl::Json;
using ZelCtl::readJson;
using namespace ZelTest;

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

// Commands, and what the views say.
#include "agent/CommandSpool.h"
#include "kiln/Choices.h"
#include "tests/campaign/Campaign.h"
#include "tests/support/ShownRows.h"

#include <array>
#include <charconv>
#include <cmath>

namespace Campaign {

namespace {

using ZelTest::Words;

// A count of 2^63 or more is negative in texts whose layout is fixed.
void makeUnsigned(std::vector<Words>& rows) {
   for (Words& row : rows) {
      for (auto& word : row) {
         S64 value = 0;
         const char* const end = word.data() + word.size();
         if (word.starts_with('-') && std::from_chars(word.data(), end, value).ptr == end) {
            word = std::to_string(static_cast<U64>(value));
         }
      }
   }
}

} // namespace

std::string Run::ask(const std::string& command) {
   const Agent::CommandSpool spool;
   const Agent::CommandResult result =
        agent_->commandRunner()->run("counters " + command, spool, "the campaign");
   expect(result.ok(), "'" + command + "' is refused: " + result.error);
   std::string text(spool.size(), '\0');
   spool.read(0, text.data(), text.size());
   return text;
}

void Run::command(Draws& draws) {
   constexpr std::array clears{"clear mac",   "clear mac",      "clear pdp",  "clear traffic-manager",
                               "clear table", "clear pipeline", "clear drop", "clear mau-deparser-drop",
                               "clear"};
   const std::string drawn = draws.oneOf(clears);
   const bool isRefused = draws.oneIn(4);
   if (isRefused) { // which a clear takes for a table that cannot be written
      agent_->fleet().faults().failNext(draws.oneIn(2) ? "counterWriteDirect" : "counterWriteIndirect", 17);
   }
   if (!model_.chips.empty()) {
      command(drawn);
      clearedCounted(drawn, false);
      checkViews("show mac");
   }
}

void Run::command(const std::string& clear) {
   ask(clear);
   for (auto& [device, chip] : model_.chips) {
      for (auto& [intf, shown] : chip.shown) {
         if (clear == "clear mac" || clear == "clear") {
            shown.clear = shown.last;
         }
      }
   }
}

// Text and document of each view, or of one, say the same, and of MAC counters what the model says.
void Run::checkViews(std::string_view only) {
   if (model_.chips.empty()) {
      return;
   }
   agent_->fleet().faults().clear(); // both are asked for with the same answers of the SDK
   // A show that finds a block reset forgets its clear, which the rows before have not heard of: the next one is whole.
   ask("show mac");
   for (auto& [device, chip] : model_.chips) {
      for (auto& [intf, shown] : chip.shown) {
         bool isReset = false;
         for (std::size_t i = 0; i < rmonCount; ++i) {
            isReset |= shown.clear[i] > shown.last[i];
         }
         const auto port = model_.ports.find(intf);
         if (isReset && port != model_.ports.end() && port->second.place == Place{device, shown.port}) {
            shown.clear = {};
         }
      }
   }
   for (const char* const command : {"show mac", "show pipeline", "show drop", "show mau-deparser-drop",
                                     "show traffic-manager", "show pdp", "show table nonzero"}) {
      if (!only.empty() && only != command) {
         continue;
      }
      const std::string text = ask(command);
      const ZelTest::Json document = ZelCtl::readJson(ask(std::string(command) + " json"));
      std::vector<Words> rows = ZelTest::rowsOf(text, document);
      makeUnsigned(rows);
      const std::vector<Words> documentRows = ZelTest::rowsOf(document);
      const auto [one, other] = std::ranges::mismatch(rows, documentRows);
      const auto told = [](auto at, const auto& all) {
         return at != all.end() ? Kiln::joined(*at, " ") : "nothing";
      };
      expect(rows == documentRows, "text and document of '" + std::string(command) + "' differ: '" +
                                        told(one, rows) + "', '" + told(other, documentRows) + "'");
      note(rows.size());
      if (std::string_view(command) == "show mac") {
         for (const ZelTest::Json* const table : ZelTest::tablesOf(document)) {
            checkShownMac(*table);
         }
      }
   }
}

void Run::checkShownMac(const ZelTest::Json& table) {
   const std::string title = table.at("title").get<std::string>(); // "Intf Ethernet1 (0)"
   const std::string intf = title.substr(5, title.find(" (") - 5);
   const auto port = model_.ports.find(intf);
   expect(port != model_.ports.end(), "'" + title + "' is shown");
   if (port == model_.ports.end()) {
      return;
   }
   const Shown& shown = model_.chips.at(port->second.place.device).shown.at(intf);
   std::size_t index = 0;
   for (const auto& row : ZelTest::listOf(table, "rows")) {
      const U64 value = shown.last.at(index) - shown.clear.at(index);
      expect(row.at("Value").get<U64>() == value, title + " shows " +
                                                       std::to_string(row.at("Value").get<U64>()) +
                                                       " and not " + std::to_string(value));
      ++index;
   }
   // Of a port that went and came back nobody has read anything yet.
   const auto& age = table.at("age-ms");
   constexpr double msPerSecond = 1000;
   const bool isRight = age.is_null()
                             ? port->second.createdTime >= shown.readTime
                             : std::abs(age.get<double>() - (now() - shown.readTime) * msPerSecond) <= 1;
   expect(isRight, title, " tells an age of ", age.dump(), " ms, read at ", shown.readTime,
          ", of a record of ", port->second.createdTime);
}

} // namespace Campaign

// The text of the table commands, and what they write.
#include "tests/support/StubSdkRig.h"

#include <functional>

namespace {

using namespace ZelTest;
using ZelCounter::ZelCounters;

constexpr U32 handle = 0xABCDEF;
constexpr U32 testedId = 2;

class TableCommands : public StubSdkRig {
 protected:
   TableCommands() {
      StubSdk::sdk().inlineDefault = true;
      refuseQueueSyncs();
   }

   // Adds a chip with this table as its table 2, and lets the first pass complete.
   ZelCounters& addChipWith(StubSdk::Table table, U16 highestPipe = 0) {
      auto catalogue = makeCatalogue(3);
      catalogue->add(3, std::move(table));
      auto& chip = addChip(3, highestPipe, catalogue);
      advance(2.0);
      return chip;
   }

   static std::string show(ZelCounters& chip, bool nonZeroOnly, U32 id = testedId) {
      return printed([&](U32 fd) { chip.showTableCounters(fd, id, nonZeroOnly); });
   }
};

struct TextCase {
   const char* name;
   bool direct;
   Counts counts;
   bool perPipe;
   bool nonZeroOnly;
   std::string expected; // for each pipe, without the line that names the pipe
};

const std::string both = " Details                                        Packets         Bytes\n";
const std::string packets = " Details                                                        Packets\n";
const std::string bytes = " Details                                                        Bytes\n";
const std::string indirect = "         Index            Packets              Bytes      \n";

const std::string bothZero =
     "match 5                                                      0               0\n";
const std::string bothLine =
     "match 7                                         18446744073709551615              12\n";
const std::string oneZero =
     "match 5                                                                        0\n";

const TextCase textCases[] = {
     {"direct both", true, packetsAndBytes, false, false, both + "#" + bothZero + bothLine + "#"},
     {"direct both nonzero", true, packetsAndBytes, true, true, both + "#" + bothLine + "#"},
     {"direct packets", true, packetsOnly, true, false,
      packets + "#" + oneZero +
           "match 7                                                           18446744073709551615\n#"},
     {"direct bytes nonzero", true, bytesOnly, false, true,
      bytes + "#match 7                                                                       12\n#"},
     {"indirect both", false, packetsAndBytes, true, false,
      indirect + "#"
                 "             0                  0                  0\n"
                 "             1                 -1                 12\n"},
     {"indirect both nonzero", false, packetsAndBytes, false, true,
      indirect + "#             1                 -1                 12\n"},
     {"indirect packets nonzero", false, packetsOnly, false, true,
      indirect + "#             1                 -1                N/A\n"},
     {"indirect bytes nonzero", false, bytesOnly, true, true,
      indirect + "#             1                N/A                 12\n"},
};

// '#' stands for the ruler, which depends on the kind of table.
std::string blockFor(const TextCase& c, const std::string& pipe) {
   const std::string rule = ruler(c.direct ? 80 : 58);
   std::string text =
        (c.direct ? "Table: tested, DevId: 3, PipeId: " : "Counter: tested, DevId: 3, PipeId: ") + pipe +
        "\n" + rule;
   for (const char ch : c.expected) {
      text += ch == '#' ? rule : std::string(1, ch);
   }
   return text + "\n";
}

TEST_F(TableCommands, TablesAreShownToTheCharacter) {
   for (const TextCase& c : textCases) {
      SCOPED_TRACE(c.name);
      StubSdk::Table table = makeTable("tested", handle, 2, c.direct, c.counts, !c.perPipe);
      table.entries = {5, 7};
      for (const U16 pipe : {U16{0}, U16{1}, ZelId::ZelPipeId::allPipes()}) {
         // A value that the table does not count must not matter.
         const bool countsBoth = c.counts == packetsAndBytes;
         table.values[{pipe, c.direct ? 5U : 0U}] = {c.counts == bytesOnly ? 9U : 0U,
                                                     !countsBoth && c.counts == packetsOnly ? 9U : 0U};
         table.values[{pipe, c.direct ? 7U : 1U}] = {~U64{0}, 12};
      }
      auto& chip = addChipWith(table, 1);
      const std::string expected = c.perPipe ? blockFor(c, "0") + blockFor(c, "1") : blockFor(c, "FFFF");
      EXPECT_EQ(show(chip, c.nonZeroOnly), expected);
      deleteChip(3);
   }
}

TEST_F(TableCommands, NothingIsShownBeforeTheTableAndTheFirstPassAreReady) {
   StubSdk::sdk().inlineDefault = false;
   StubSdk::Table late = makeTable("tested", handle, 1, false, packetsOnly, false);
   late.checksUntilInitialized = 1;
   auto& chip = addChipWith(late, 1);
   const std::string not2 = "Counter table 2 not initialized yet\n";
   const std::string not0 = "Counter table 0 not initialized yet\n";
   EXPECT_EQ(show(chip, false, 0), not0 + "\n" + not0 + "\n") << "initialized, but no pass has landed";
   StubSdk::sdk().table(3, handle).checksUntilInitialized = 1000;
   auto& again = addChip(3, 1, makeCatalogue(3));
   EXPECT_EQ(show(again, false, 2), not2) << "no such table is not initialized either";
   EXPECT_EQ(printed([&](U32 fd) { again.showTableCountersPipe(fd, 2, 0, false); }), not2);
}

TEST_F(TableCommands, ReadErrorsEndTheTable) {
   StubSdk::Table table = makeTable("tested", handle, 3, false, packetsOnly);
   auto& chip = addChipWith(table);
   auto& statuses = StubSdk::sdk().statuses;
   const U16 all = ZelId::ZelPipeId::allPipes();
   const std::string header = "Counter: tested, DevId: 3, PipeId: FFFF\n" + ruler(58) + indirect + ruler(58);

   statuses[{"index 1", handle, all}] = 5;
   EXPECT_EQ(show(chip, false), header + "             0                  0                N/A\n"
                                         "Got error 5 retrieving the counters\n\n");
   statuses[{"counterReadIndirectStart", handle, all}] = 1;
   EXPECT_EQ(show(chip, false), header + "\n");
}

TEST_F(TableCommands, DirectReadErrorsEndTheTable) {
   StubSdk::Table table = makeTable("tested", handle, 3, true, packetsOnly);
   table.entries = {5};
   auto& chip = addChipWith(table);
   auto& statuses = StubSdk::sdk().statuses;
   const U16 all = ZelId::ZelPipeId::allPipes();
   const std::string header = "Table: tested, DevId: 3, PipeId: FFFF\n" + ruler(80) + packets + ruler(80);

   statuses[{"counterReadDirectEnd", 0, 0}] = 1;
   EXPECT_EQ(show(chip, false), header + oneZero + "\n") << "no closing line";
   statuses[{"counterReadDirectMain", handle, all}] = 10;
   EXPECT_EQ(show(chip, false), header + "Got error 10 retrieving the counters\n\n");
   statuses[{"counterReadDirectStart", handle, all}] = 1;
   EXPECT_EQ(show(chip, false), header + "\n");
}

TEST_F(TableCommands, ClosedPipeEndsTheOutput) {
   auto& chip = addChipWith(makeTable("tested", handle, 1000000, false, packetsOnly));
   printToNobody([&](U32 fd) { chip.showAllTableCounters(fd, false); });
   EXPECT_LT(StubSdk::sdk().reads, 10000U);
}

TEST_F(TableCommands, ClearWritesZeroToEveryEntryOfThePipesAsked) {
   for (const bool direct : {false, true}) {
      SCOPED_TRACE(direct ? "direct" : "indirect");
      StubSdk::Table table = makeTable("tested", handle, 2, direct, packetsAndBytes, false);
      table.entries = {0, 1};
      for (const U16 pipe : {U16{0}, U16{1}, U16{2}}) {
         table.values[{pipe, 0}] = {1, 2};
         table.values[{pipe, 1}] = {3, 4};
      }
      auto& chip = addChipWith(table, 2);
      const auto sum = [&](U16 pipe) {
         const auto& values = StubSdk::sdk().table(3, handle).values;
         return values.at({pipe, 0}).packets + values.at({pipe, 0}).bytes + values.at({pipe, 1}).packets +
                values.at({pipe, 1}).bytes;
      };
      chip.clearTableCounters(0, testedId, 1);
      EXPECT_EQ(sum(0), 10U);
      EXPECT_EQ(sum(1), 0U);
      EXPECT_EQ(sum(2), 10U);
      chip.clearAllTableCounters(0);
      EXPECT_EQ(sum(0) + sum(2), 0U);
      deleteChip(3);
   }
}

TEST_F(TableCommands, ProtectedTablesAreNeverCleared) {
   auto catalogue = makeCatalogue(0);
   catalogue->add(0, makeTable("ingL2DomainCounters", 0xF1, 1, false, packetsOnly));
   catalogue->add(0, makeTable("egrL2DomainCounters", 0xF2, 1, false, packetsOnly));
   catalogue->add(0, makeTable("other", 0xF3, 1, false, packetsOnly));
   const U16 all = ZelId::ZelPipeId::allPipes();
   auto& chip = addChip(0, 0, catalogue);
   for (const U32 protectedHandle : {pdpHandle, queueHandle, 0xF1U, 0xF2U, 0xF3U}) {
      StubSdk::sdk().table(0, protectedHandle).values[{protectedHandle > 0xF0 ? all : U16{0}, 0}] = {1, 0};
   }
   chip.clearAllTableCounters(0);
   const auto left = [&](U32 h, U16 pipe) { return StubSdk::sdk().table(0, h).values[{pipe, 0}].packets; };
   EXPECT_EQ(left(pdpHandle, 0) + left(queueHandle, 0) + left(0xF1, all) + left(0xF2, all), 4U);
   EXPECT_EQ(left(0xF3, all), 0U);
}

TEST_F(TableCommands, UnsupportedClearEndsQuietlyAndAnyOtherRefusalStopsTheProcess) {
   const U16 all = ZelId::ZelPipeId::allPipes();
   auto& chip = addChipWith(makeTable("tested", handle, 2, false, packetsOnly));
   StubSdk::sdk().statuses[{"counterWrite", handle, all}] = 17;
   chip.clearTableCounters(0, testedId, all);
   StubSdk::sdk().statuses[{"counterWrite", handle, all}] = 5;
   EXPECT_DEATH(chip.clearTableCounters(0, testedId, all), "\"status == 0\" failed");
   StubSdk::sdk().statuses.erase({"counterWrite", handle, all});
   StubSdk::Table direct = makeTable("tested", handle, 2, true, packetsOnly);
   direct.entries = {5, 7};
   auto& other = addChipWith(direct);
   StubSdk::sdk().statuses[{"index 5", handle, all}] = 5; // but not its next entry
   EXPECT_DEATH(other.clearTableCounters(0, testedId, all), "\"status == 0\" failed");
}

TEST_F(TableCommands, MisuseStopsTheProcess) {
   StubSdk::Table countless = makeTable("tested", handle, 2, true, packetsOnly);
   countless.info.packets = false;
   auto& chip = addChipWith(countless);
   auto& ports = addChip(4, 0, nullptr);
   const struct {
      const char* assertion;
      std::function<void()> misuse;
   } misuses[] = {
        {"\"info->bytes\"", [&] { chip.showTableCounters(1, testedId, false); }},
        {"\"pipeId != ZelId::ZelPipeId::allPipes\\(\\)\"",
         [&] { chip.showTableCountersPipe(1, 0, ZelId::ZelPipeId::allPipes(), false); }},
        {"\"tableId < countersNum\"",
         [&] {
            chip.initializedCounterIs(3, true);
            chip.showTableCounters(1, 3, false);
         }},
        {"\"tableId < \\(U32\\)zlResourceInfoIntf\\(\\)->zlTableCountersNum\\(\\)\"",
         [&] { chip.clearTableCounters(1, 3, 0); }},
        {"\"zlResourceInfoIntf\\(\\)\"", [&] { ports.clearTableCounters(1, 0, 0); }},
        {"\"zlCounters\"", [&] { ports.showCountersInfo(1); }},
   };
   for (const auto& m : misuses) {
      EXPECT_DEATH(m.misuse(), m.assertion);
   }
}

} // namespace

// An answer of several chips: nothing of one passes for another's.
#include "counters/chip/ShowTarget.h"
#include "tests/support/Output.h"
#include "tests/support/SimulatedTime.h"

#include <gtest/gtest.h>

namespace {

using namespace ZelTest;
using ZelCounter::TableView;

std::string answer(bool json) {
   return printed([&](U32 fd) {
      const TableView whole{"Whole", {{"Packets", TableView::Holds::counter, 7}}, {{U64{7}}}};
      TableView troubled = whole;
      troubled.title = "Troubled";
      troubled.notes = {"a note"};
      troubled.readings = {{"pipe 0", {std::nullopt, "IO error"}}};
      const auto out = ZelCounter::answerTo(fd, json);
      for (const char* name : {"Zel0", "Zel9"}) {
         out->chipBegin(name, true);
         out->uninitialized();
         out->chipEnd();
      }
      for (const char* name : {"Zel1", "Zel2"}) {
         out->chipBegin(name, true);
         if (name == std::string("Zel1")) {
            out->view(troubled);
         }
         out->view(whole);
         out->tellReadings(name);
         out->chipEnd();
      }
      out->documentEnd();
   });
}

TEST(ShowOutput, OfEachChipAndTableSaysWhatIsItsOwn) {
   const SimulatedTime time;
   const std::string rule = "=========\n";
   const std::string rows = rule + "  Packets\n" + rule + "        7\n" + rule;
   EXPECT_EQ(answer(false),
             "Chip Zel0:\nAgent not initialized yet\nChip Zel9:\nAgent not initialized yet\nTroubled\n" +
                  rows + "a note\n\nWhole\n" + rows + "\nZel1: never read: IO error\nWhole\n" + rows + "\n");
   std::string document = answer(true);
   std::erase(document, '\n');
   const std::string whole = R"({"title":"Whole","counters":["Packets"],"rows":[{"Packets":7}],"notes":[]})";
   EXPECT_EQ(document, R"({"chips":[{"chip":"Zel0","error":"Agent not initialized yet"},)"
                       R"({"chip":"Zel9","error":"Agent not initialized yet"},{"chip":"Zel1","tables":[)"
                       R"({"title":"Troubled","counters":["Packets"],"rows":[{"Packets":7}],"age-ms":null,)"
                       R"("status":"IO error","notes":["a note"]},)" +
                            whole + R"(],"notes":["Zel1: never read: IO error"]},{"chip":"Zel2","tables":[)" +
                            whole + R"(],"notes":[]}]})");
}

TEST(Clears, TheLatestOfAPipeAndOfAllIsTold) {
   SimulatedTime time;
   ZelCounter::Clears clears;
   clears.cleared(7, ZelId::ZelPipeId::allPipes());
   time.advance(1.0);
   clears.cleared(7, 0);
   EXPECT_EQ(clears.last(7, 0)->time, 1.0);
   EXPECT_EQ(clears.last(7, 1)->time, 0.0);
   EXPECT_FALSE(clears.last(8, 0));
}

} // namespace

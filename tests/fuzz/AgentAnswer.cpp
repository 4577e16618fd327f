// What an agent answers, as the client reads it: as JSON, as tables, and as the text of those.
#include "apps/zelctl/terminal/Utf8.h"
#include "apps/zelctl/views/CountersDocument.h"
#include "apps/zelctl/views/JsonReader.h"
#include "apps/zelctl/views/TextTable.h"
#include "tests/fuzz/Fuzz.h"

#include <nlohmann/json.hpp>

using Kiln::String;
using ZelFuzz::isTaken;
using ZelFuzz::must;

namespace {

void check(const ZelCtl::ShownTable& table) {
   must(ZelCtl::printable(table.title) == table.title, "a title is one printable line");
   for (const ZelCtl::ShownRow& row : table.rows) {
      must(row.cells.size() <= table.columns.size(), "each cell has a column");
      for (std::size_t i = 0; i < row.cells.size(); ++i) {
         const ZelCtl::ShownCell& cell = row.cells[i];
         must(ZelCtl::printable(cell.text) == cell.text, "a cell is printable");
         must(!cell.count || table.columns[i].kind == ZelCtl::ShownColumn::Kind::counter,
              "only counters have counts");
         must(!cell.count || cell.text == std::to_string(*cell.count) || cell.text == "not supported",
              "a count is what its text says");
      }
      must(!row.sampled || row.sampled->earliest <= row.sampled->latest, "a sample has a time");
   }
   constexpr std::size_t width = 80;
   const String text = ZelCtl::tableText(table, width);
   must(Kiln::printableText(text) == text, "a table's text is printable");
}

} // namespace

int LLVMFuzzerTestOneInput(const U8* data, std::size_t size) {
   const std::string_view text = ZelFuzz::textOf(data, size);
   isTaken<std::runtime_error>([&] {
      const ZelCtl::Json value = ZelCtl::readJson(text);
      must(ZelCtl::readJson(value.dump()) == value, "JSON that is read prints back");
   });
   isTaken<std::runtime_error>([&] {
      for (const ZelCtl::ShownTable& table : ZelCtl::readCountersDocument(text, 100.0, 100.5)) {
         check(table);
      }
   });
   return 0;
}

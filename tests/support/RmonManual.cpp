// Reads the table from the manual.
#include "tests/support/RmonManual.h"

#include <fstream>

namespace ZelTest {

namespace {

// The cells of a table row that begins with a number; empty for any other line.
std::vector<std::string> rowCells(const std::string& line) {
   std::vector<std::string> cells;
   if (line.size() < 3 || line[0] != '|' || line[2] < '0' || line[2] > '9') {
      return cells;
   }
   for (std::size_t begin = 2; begin < line.size();) {
      const std::size_t end = line.find(" |", begin);
      if (end == std::string::npos) {
         break;
      }
      cells.push_back(line.substr(begin, end - begin));
      begin = end + 3;
   }
   return cells;
}

} // namespace

std::vector<std::vector<std::string>> rmonManual() {
   std::ifstream manual(ZEL_SOURCE_DIR "/docs/rmon-counters.md");
   std::vector<std::vector<std::string>> rows;
   for (std::string line; std::getline(manual, line);) {
      if (std::vector<std::string> cells = rowCells(line); !cells.empty()) {
         rows.push_back(std::move(cells));
      }
   }
   return rows;
}

} // namespace ZelTest

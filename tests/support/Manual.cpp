// Reads tables out of the documents.
#include "tests/support/Manual.h"

#include "tests/support/Files.h"

#include <sstream>
#include <stdexcept>

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

std::string manual(const std::string& file) {
   return bytesOf(ZEL_SOURCE_DIR "/docs/" + file);
}

std::vector<std::vector<std::string>> manualRows(const std::string& file, const std::string& heading) {
   std::istringstream text(manual(file));
   std::vector<std::vector<std::string>> rows;
   bool isBelow = false;
   for (std::string line; std::getline(text, line);) {
      if (line.starts_with('#')) {
         isBelow = line == heading;
      }
      if (std::vector<std::string> cells = rowCells(line); isBelow && !cells.empty()) {
         rows.push_back(std::move(cells));
      }
   }
   if (rows.empty()) {
      throw std::out_of_range(file + " has no table below '" + heading + "'");
   }
   return rows;
}

} // namespace ZelTest

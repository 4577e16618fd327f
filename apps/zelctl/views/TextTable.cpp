// Measures columns and pads cells.
#include "apps/zelctl/views/TextTable.h"

#include <algorithm>

namespace ZelCtl {

Kiln::String TextTable::text() const {
   constexpr std::size_t gap = 2;
   const std::size_t columns = rows_.front().size();
   std::vector<std::size_t> widths(columns, 0);
   for (const auto& row : rows_) {
      const std::size_t measured = row.size() < columns ? row.size() - 1 : columns;
      for (std::size_t i = 0; i < measured; ++i) {
         widths[i] = std::max(widths[i], row[i].size());
      }
   }
   Kiln::String text;
   for (const auto& row : rows_) {
      Kiln::String line = row.front();
      for (std::size_t i = 1; i < row.size(); ++i) {
         const bool isLoose = row.size() < columns && i + 1 == row.size();
         line.resize(std::max(line.size(), i == 1 ? widths[0] : line.size()), ' ');
         const std::size_t width = isLoose ? 0 : widths[i];
         line += Kiln::String(gap + (width > row[i].size() ? width - row[i].size() : 0), ' ') + row[i];
      }
      text += line + "\n";
   }
   return text;
}

} // namespace ZelCtl

// Text in aligned columns.
#pragma once

#include "kiln/Types.h"

#include <vector>

namespace ZelCtl {

// Each column is as wide as its widest cell. The first is aligned left, the others right. The last cell of a row that
// ends early may have any length, and widens no column.
class TextTable {
 public:
   explicit TextTable(std::vector<Kiln::String> headings) : rows_{std::move(headings)} {}
   void add(std::vector<Kiln::String> cells) { rows_.push_back(std::move(cells)); }
   Kiln::String text() const;

 private:
   std::vector<std::vector<Kiln::String>> rows_;
};

} // namespace ZelCtl

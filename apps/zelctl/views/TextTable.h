// Text in aligned columns.
#pragma once

#include "kiln/Types.h"

#include <vector>

namespace ZelCtl {

// Columns are as wide as their widest cell: the first is aligned left, the others right. A row that ends
// early may end in a cell as long as it likes, which widens nothing.
class TextTable {
 public:
   explicit TextTable(std::vector<Kiln::String> headings) : rows_{std::move(headings)} {}
   void add(std::vector<Kiln::String> cells) { rows_.push_back(std::move(cells)); }
   Kiln::String text() const;

 private:
   std::vector<std::vector<Kiln::String>> rows_;
};

} // namespace ZelCtl

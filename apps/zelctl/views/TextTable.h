// A table as aligned text.
#pragma once

#include "apps/zelctl/views/ShownTable.h"

namespace ZelCtl {

// Each column is as wide as its widest cell. The first is aligned left, the others right. The last cell of a row that
// ends early may have any length, and widens no column. To fit so many columns of the terminal (0 for no limit), whole
// columns are left out, those of zeros first and never a key, and named below the rows; title and notes are wrapped
// between words.
Kiln::String tableText(const ShownTable& table, std::size_t width);

} // namespace ZelCtl

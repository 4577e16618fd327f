// Lays out a round of a watch: for a terminal as much as fits, otherwise all of it.
#pragma once

#include "apps/zelctl/watch/WatchChanges.h"

namespace ZelCtl {

struct WatchRoom {
   std::size_t width = 0;  // columns; 0 for no limit
   std::size_t height = 0; // lines; 0 for no limit
   bool hasStyles = false; // bold for what changed
};

// Returns the lines, without newlines. Each row begins with a mark: '*' changed, '+' new, '-' gone. To fit the width,
// columns that are 0 throughout are left out, and then the last ones; to fit the height, rows that never changed, and
// then the last ones. The last line says how much was left out.
std::vector<Kiln::String> layOut(const std::vector<WatchedTable>& tables, const WatchRoom& room);

} // namespace ZelCtl

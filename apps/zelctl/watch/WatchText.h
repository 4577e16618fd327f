// Lays a round of a watch out: for a terminal, as much as it has room for; else all of it.
#pragma once

#include "apps/zelctl/watch/WatchChanges.h"

namespace ZelCtl {

struct WatchRoom {
   std::size_t width = 0; // 0: whatever it takes
   std::size_t height = 0;
   bool hasStyles = false; // bold for what changed
};

// Lines without their ends. A mark leads each row: '*' changed, '+' new, '-' gone. To fit the width, counters
// that are 0 throughout go, and then the last ones; to fit the height, rows that never changed, and then the
// last ones. What was left out is said in the last line.
std::vector<Kiln::String> layOut(const std::vector<WatchedTable>& tables, const WatchRoom& room);

} // namespace ZelCtl

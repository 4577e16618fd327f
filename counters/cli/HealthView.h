// What a chip's reads tell of its health, and of the agent's.
#pragma once

#include "counters/chip/ManagerAccess.h"
#include "counters/show/TableView.h"

namespace ZelCounter {

// One row: a verdict, how old each kind of reading is, and what went wrong so far. Its readings are all that are made at
// intervals, so that what is told of them says which ones are in trouble. With `isFirst` notes tell of the whole process.
TableView healthView(ZelCounters& chip, const ManagerAccess& mgr, bool isFirst);

// How long the activity lock was held and waited for, one sentence a line. On the machine's clock, whatever the time source.
std::vector<Kiln::String> activityLockLines();

} // namespace ZelCounter

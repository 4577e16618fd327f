// Reads a `watch` line: what to show, and how often.
#pragma once

#include "apps/zelctl/watch/Watch.h"

namespace ZelCtl {

// Reads the words of a line that begins with `watch`. Refuses whatever is not certain to be a show, since it might
// change something. Throws std::runtime_error, saying what is wrong and what was expected.
WatchRequest parseWatch(const std::vector<Kiln::String>& words);

} // namespace ZelCtl

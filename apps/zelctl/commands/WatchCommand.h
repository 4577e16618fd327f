// What of a `watch` line is to be shown over and over.
#pragma once

#include "apps/zelctl/watch/Watch.h"

namespace ZelCtl {

// From the words of a line, of which the first is `watch`. Throws std::runtime_error with what is wrong and
// what is expected: what would change something, or isn't certain to be a show, is refused.
WatchRequest parseWatch(const std::vector<Kiln::String>& words);

} // namespace ZelCtl

// What may come next in a line that is being typed.
#pragma once

#include "apps/zelctl/commands/Commands.h"

namespace ZelCtl {

// The words that the line's last one may become, or that may follow if it ends in a blank; sorted, each once.
// The agent says what may follow `counters`, if it answers within a second. What goes wrong means fewer
// candidates.
std::vector<Kiln::String> completionsOf(const Client& client, const Kiln::String& line);

} // namespace ZelCtl

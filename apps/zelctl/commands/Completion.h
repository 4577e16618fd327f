// Completion of a line that is being typed.
#pragma once

#include "apps/zelctl/commands/Commands.h"

namespace ZelCtl {

// The words that the line's last one may become, or that may follow if the line ends in a blank; sorted, keywords before names, each once.
// The agent is asked what may follow its own commands, and has a second to answer. An error means fewer candidates;
// but std::runtime_error is thrown if the agent ends while it answers.
std::vector<Kiln::String> completionsOf(const Client& client, const Kiln::String& line);

} // namespace ZelCtl

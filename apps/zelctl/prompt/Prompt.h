// The prompt: reads lines at a terminal and has them carried out.
#pragma once

#include "apps/zelctl/commands/Commands.h"

namespace ZelCtl {

// Until `quit`, the end of input, or a signal to end. On a terminal that can do no more than lines, or when
// the answers go elsewhere, without editing. Returns the exit status.
int runPrompt(const Client& client);

} // namespace ZelCtl

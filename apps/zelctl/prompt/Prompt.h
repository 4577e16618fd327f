// The prompt: reads lines at a terminal and runs them.
#pragma once

#include "apps/zelctl/commands/Commands.h"

namespace ZelCtl {

// Runs lines until `quit`, the end of input, or a signal to end. There is no editing on a dumb terminal, or when
// standard output is not a terminal. Returns the exit status.
int runPrompt(const Client& client);

} // namespace ZelCtl

// Text that is longer than the screen, through the user's pager.
#pragma once

#include "apps/zelctl/terminal/Signals.h"
#include "apps/zelctl/terminal/Terminal.h"

#include <string_view>

namespace ZelCtl {

// Writes to standard output, like writeOut; but on a screen that the text does not fit, through $PAGER, and waits for its
// end. If PAGER is not set, it is `less -FRX` or `more`, whichever there is; if it is empty, there is none. A signal to
// end also ends the pager; Ctrl-C is the pager's own.
Written pageOut(std::string_view text, Signals* signals);

} // namespace ZelCtl

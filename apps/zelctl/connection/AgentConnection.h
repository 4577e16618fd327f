// The client's side of the command channel.
#pragma once

#include "apps/zelctl/terminal/Signals.h"
#include "kiln/Types.h"

namespace ZelCtl {

// An agent's answer: its text, and when it refused the command, what it said, "% " and all.
struct Answer {
   Kiln::String text;
   Kiln::String error; // without its newline; empty when the command was carried out
};

struct Patience {
   int perByte = 30;       // seconds without one
   int inAll = 0;          // seconds; 0 for no bound
   bool endsByKey = false; // 'q' on standard input is a Ctrl-C; needs signals
};

// Sends one command line to the agent on the socket and takes the whole answer. An agent that does not answer
// is an error like any other. `signals` may be null; with them, Ctrl-C gives up waiting: an error too.
Answer ask(const Kiln::String& socketPath, const Kiln::String& line, Signals* signals,
           const Patience& patience = {});

} // namespace ZelCtl

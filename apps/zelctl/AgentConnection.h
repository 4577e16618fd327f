// The client's side of the command channel.
#pragma once

#include "kiln/Types.h"

namespace ZelCtl {

// An agent's answer: its text, and when it refused the command, what it said, "% " and all.
struct Answer {
   Kiln::String text;
   Kiln::String error; // without its newline; empty when the command was carried out
};

// Sends one command line to the agent on the socket and takes the whole answer. An agent that does not answer
// is an error like any other.
Answer ask(const Kiln::String& socketPath, const Kiln::String& line);

} // namespace ZelCtl

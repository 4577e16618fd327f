// Command lines, carried out: by the agent, from the shared tables, or by the client itself.
#pragma once

#include "apps/zelctl/terminal/Signals.h"
#include "kiln/Types.h"
#include "silo/Store.h"

#include <string_view>
#include <vector>

namespace ZelCtl {

enum ExitStatus : int { carriedOut = 0, refused = 1 };

// Where a client finds what it shows.
struct Client {
   Kiln::String socketPath;
   Kiln::String siloFolder; // empty: the machine's shared memory

   Silo::Store store() const; // std::runtime_error when there is none
};

// Prints what the command prints; what is wrong goes to standard error, beginning "% ". Returns the exit
// status. `signals` may be null; with them, Ctrl-C gives the command up.
int runLine(const Client& client, const Kiln::String& line, Signals* signals);

// Prints a line that says what is wrong, and gives the exit status for it.
int complain(std::string_view problem);

} // namespace ZelCtl

// Runs command lines: by the agent, from the shared tables, or in the client itself.
#pragma once

#include "apps/zelctl/connection/AgentConnection.h"
#include "kiln/Types.h"
#include "silo/Store.h"

#include <string_view>
#include <vector>

namespace ZelCtl {

enum ExitStatus : int { carriedOut = 0, refused = 1 };

// Where a client finds what it shows.
struct Client {
   Kiln::String socketPath; // empty: wherever an agent answers
   Kiln::String siloFolder; // empty: this user's in shared memory, or root's
   bool usesPager = true;   // for what is longer than the screen

   // The agent's answer to the line.
   Answer ask(const Kiln::String& line, Signals* signals, const Patience& patience = {}) const;
   Silo::Store store() const; // throws std::runtime_error if there is none
};

// Runs the command, which filters may follow, and prints its output; an error goes to standard error, beginning "% ". Returns the exit status.
// `signals` may be null; otherwise Ctrl-C stops the command.
int runLine(const Client& client, const Kiln::String& line, Signals* signals);

// Prints the problem on standard error as one line, and returns the exit status for it.
int complain(std::string_view problem);

} // namespace ZelCtl

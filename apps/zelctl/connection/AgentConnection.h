// The client's side of the command channel.
#pragma once

#include "apps/zelctl/terminal/Signals.h"
#include "kiln/Types.h"

#include <vector>

namespace ZelCtl {

// An agent's answer: its text, and for a refused command the line that says why, which begins "% ". Neither holds
// anything that a terminal might obey.
struct Answer {
   Kiln::String text;
   Kiln::String error; // without its newline; empty when the command was carried out
   bool isCut =
        false; // the agent ended before the answer was complete; the text is the whole lines that came
};

// How long to wait for an answer.
struct Patience {
   int perByte = 30;       // seconds until the next byte
   int inAll = 0;          // seconds for the whole answer; 0 for no bound
   bool endsByKey = false; // 'q' on standard input counts as Ctrl-C; needs signals
   bool isSaid = true;     // after a second of silence, standard error says that the agent is waited for
};

// Sends one command line to the first agent that answers on one of the sockets, and returns the whole answer. Whoever
// listens there is asked only if it is root or this process's user. An agent that does not answer, or not in time, or
// with more than any agent sends, or that ends before its answer is complete, or that speaks another version of the
// protocol, is reported in Answer::error, as is Ctrl-C, which is noticed only if `signals` is not null.
Answer ask(const std::vector<Kiln::String>& socketPaths, const Kiln::String& line, Signals* signals,
           const Patience& patience = {});

} // namespace ZelCtl

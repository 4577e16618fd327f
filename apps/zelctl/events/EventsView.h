// `events`: what happened, from the shared table of events.
#pragma once

#include "apps/zelctl/events/EventsRequest.h"
#include "apps/zelctl/terminal/Signals.h"

namespace ZelCtl {

// The text that the command prints, at most so many columns wide unless that is 0. Throws std::runtime_error, saying what
// is wrong and what was expected.
Kiln::String viewEvents(const std::vector<Kiln::String>& words, const Silo::Store& store, std::size_t width);

// Whether the words ask to go on. Throws likewise.
bool isFollowing(const std::vector<Kiln::String>& words, const Silo::Store& store);

// Prints what there is and then what comes, until Ctrl-C, or until the reader of standard output is gone; both are success.
// An event that comes again is printed again with its new count. What is to be said of the table goes to standard error.
// Returns the exit status; after a signal to end, 128 plus its number.
int followEvents(const std::vector<Kiln::String>& words, const Silo::Store& store, std::size_t width,
                 Signals* signals);

} // namespace ZelCtl

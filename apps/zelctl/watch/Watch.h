// `watch`: repeats a show, and makes what changed stand out.
#pragma once

#include "apps/zelctl/connection/AgentConnection.h"
#include "apps/zelctl/views/ShownTable.h"

#include <functional>

namespace ZelCtl {

struct WatchRequest {
   double interval = 2;             // seconds from one round's start to the next one's
   std::vector<Kiln::String> words; // the show, its first word in full
};

struct WatchRound {
   std::vector<ShownTable> tables;
   Kiln::String error; // begins "% "; empty if there are tables
};

using FetchRound = std::function<WatchRound(const Patience&)>;

// Shows rounds until Ctrl-C, 'q' on a terminal, or until the reader of standard output is gone; all of these are
// success. An error in the first round ends the watch. A later one ends it only without a terminal; on a terminal it
// is shown, and the watch goes on trying. Returns the exit status; after a signal to end, 128 plus its number.
int runWatch(const WatchRequest& request, const FetchRound& fetch, Signals* signals);

} // namespace ZelCtl

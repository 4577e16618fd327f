// `watch`: a show over and over, with what changed standing out.
#pragma once

#include "apps/zelctl/connection/AgentConnection.h"
#include "apps/zelctl/views/ShownTable.h"

#include <functional>

namespace ZelCtl {

struct WatchRequest {
   double interval = 2;             // seconds, from round to round
   std::vector<Kiln::String> words; // the show, its first word in full
};

struct WatchRound {
   std::vector<ShownTable> tables;
   Kiln::String error; // with its "% "; instead of tables
};

using FetchRound = std::function<WatchRound(const Patience&)>;

// Shows rounds until Ctrl-C, or 'q' on a terminal, or until the reader of standard output is gone: all of
// these are success. An error in the first round ends it; later ones do so only without a terminal, which
// shows them and goes on trying. Returns the exit status; a signal to end gives 128 and its number.
int runWatch(const WatchRequest& request, const FetchRound& fetch, Signals* signals);

} // namespace ZelCtl

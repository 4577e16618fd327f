// `history`: what counters did, from the samples that the agent keeps in shared memory.
#pragma once

#include "apps/zelctl/history/HistoryRequest.h"

namespace ZelCtl {

// history INTF... [COUNTER...] [last DURATION | from TIME to TIME] [totals] [json | csv]: the text that it prints, with
// plots so many columns wide, or 80 if that is 0. One counter of one interface has a tall plot, others a line each. Throws
// std::runtime_error, saying what is wrong and what was expected.
Kiln::String viewHistory(const std::vector<Kiln::String>& words, const Silo::Store& store, std::size_t width,
                         Charset charset);

} // namespace ZelCtl

// The commands that show published records. They read the shared tables and ask no agent.
#pragma once

#include "apps/zelctl/views/ShownTable.h"
#include "silo/Store.h"

namespace ZelCtl {

// Whether a command's first word is one of them.
bool isViewCommand(const Kiln::String& word);

// Returns the text that the command prints, at most so many columns wide unless that is 0. Throws std::runtime_error, saying what is wrong and what was expected.
Kiln::String viewRecords(const std::vector<Kiln::String>& words, const Silo::Store& store, std::size_t width);

// Returns the same as tables, at least one, for a watch. Throws likewise, and also for `json` and `rates`, which a
// watch does not take.
std::vector<ShownTable> showRecords(const std::vector<Kiln::String>& words, const Silo::Store& store);

// The words that may follow these, the first of which must be such a command: keywords, and the interfaces in the
// table; also the lists and ranges that `begun` may become.
std::vector<Kiln::String> viewCandidates(const std::vector<Kiln::String>& words, const Kiln::String& begun,
                                         const Silo::Store& store);

// A line for each command, for --help.
Kiln::String viewCommandsHelp();

} // namespace ZelCtl

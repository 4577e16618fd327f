// The commands that show published records, straight from the shared tables: no agent is asked.
#pragma once

#include "apps/zelctl/views/ShownTable.h"
#include "silo/Store.h"

namespace ZelCtl {

// Whether a command's first word is one of them.
bool isViewCommand(const Kiln::String& word);

// The text that the command prints. Throws std::runtime_error with what is wrong and what is expected.
Kiln::String viewRecords(const std::vector<Kiln::String>& words, const Silo::Store& store);

// The same as tables, at least one, for a watch, which `json` and `rates` are not for. Throws likewise.
std::vector<ShownTable> showRecords(const std::vector<Kiln::String>& words, const Silo::Store& store);

// What may follow the words, the first of which is such a command: keywords, and interfaces where there are
// any.
std::vector<Kiln::String> viewCandidates(const std::vector<Kiln::String>& words, const Silo::Store& store);

// One line a command, for --help.
Kiln::String viewCommandsHelp();

} // namespace ZelCtl

// The commands that show published records, straight from the shared tables: no agent is asked.
#pragma once

#include "kiln/Types.h"
#include "silo/Store.h"

#include <vector>

namespace ZelCtl {

// Whether a command's first word is one of them.
bool isViewCommand(const Kiln::String& word);

// The text that the command prints. Throws std::runtime_error with what is wrong and what is expected.
Kiln::String viewRecords(const std::vector<Kiln::String>& words, const Silo::Store& store);

// One line a command, for --help.
Kiln::String viewCommandsHelp();

} // namespace ZelCtl

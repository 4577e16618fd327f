// The words with which a command begins, and what they abbreviate.
#pragma once

#include "kiln/Types.h"

#include <vector>

namespace ZelCtl {

// What can be shown over and over.
std::vector<Kiln::String> showCommands();

// These, and the client's own.
std::vector<Kiln::String> allCommands();

// Whether the command leaves the prompt.
bool isLeaving(const Kiln::String& command);

// The command that the word is, or abbreviates; else the word itself, since an agent may know it. An
// ambiguous word is a std::runtime_error.
Kiln::String commandNamed(const Kiln::String& word);

} // namespace ZelCtl

// The words that a command may begin with, and their abbreviations.
#pragma once

#include "kiln/Types.h"

#include <vector>

namespace ZelCtl {

// The commands that `watch` can repeat.
std::vector<Kiln::String> showCommands();

// Whether the agent carries the command out.
bool isAgentCommand(const Kiln::String& command);

// All commands, the client's own too.
std::vector<Kiln::String> allCommands();

// Whether the command reads the shared tables.
bool isRecordCommand(const Kiln::String& command);

// Whether the command shows one of the agent's logs.
bool isLog(const Kiln::String& command);

// Whether the command leaves the prompt.
bool isLeaving(const Kiln::String& command);

// Returns the command that the word names or abbreviates; otherwise the word itself, since the agent may know it.
// Throws std::runtime_error if the word is ambiguous, naming the commands it may stand for.
Kiln::String commandNamed(const Kiln::String& word);

} // namespace ZelCtl

// Help while a command is being typed: on one word, on what may come next, and on what was probably meant.
#pragma once

#include "kiln/Types.h"

#include <vector>

namespace ZelCtl {

// `help`: the topics; `help WORD`: the topic. Throws std::runtime_error for an unknown word, naming what there is.
Kiln::String helpOn(const std::vector<Kiln::String>& words);

// The words that `help` explains.
std::vector<Kiln::String> helpTopics();

// What may come next, a line for each word that has a meaning here; names together. `before` is the word that it follows,
// empty for none.
Kiln::String helpOnNext(const std::vector<Kiln::String>& candidates, const Kiln::String& before);

// The command that a line with a wrong first word was meant to be: "interfaces" for "show interfaces", "counters show
// drop" for "drop". Empty if that cannot be told.
Kiln::String rightCommand(const std::vector<Kiln::String>& words);
// Whether the agent shows it as well: then it is no mistake to ask the agent.
bool isAgentShow(const Kiln::String& word);

} // namespace ZelCtl

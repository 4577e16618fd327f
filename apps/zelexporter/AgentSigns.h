// Whether there is an agent that publishes.
#pragma once

#include "kiln/Types.h"
#include "silo/Store.h"

namespace ZelExporter {

// Why what is published there is not of now: no table can be read, no agent lives, or it lives and publishes nothing.
// Empty if all is well.
Kiln::String agentProblem(const Silo::Store& store);

} // namespace ZelExporter

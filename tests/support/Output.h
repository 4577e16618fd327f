// The output of operations that print to a descriptor.
#pragma once

#include "kiln/Types.h"

#include <functional>
#include <string>

namespace ZelTest {

// Returns what the operation writes to the descriptor that it is given.
std::string printed(const std::function<void(U32 fd)>& operation);

// Runs the operation with a descriptor whose reader is gone.
void printToNobody(const std::function<void(U32 fd)>& operation);

} // namespace ZelTest

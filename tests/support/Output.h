// What is written to a descriptor.
#pragma once

#include "kiln/Types.h"

#include <functional>
#include <string>

namespace ZelTest {

// What the operation writes to the descriptor that it is given.
std::string printed(const std::function<void(U32 fd)>& operation);

// What the operation is given leads to a reader that is gone.
void printToNobody(const std::function<void(U32 fd)>& operation);

} // namespace ZelTest

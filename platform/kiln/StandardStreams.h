// The descriptors 0, 1 and 2 of a program.
#pragma once

namespace Kiln {

// Opens those that are closed: the next file or socket to be opened would take the number, and what is printed would go
// into it. For programs, at their start.
void openStandardStreams();

} // namespace Kiln

// What drives the stub of the SDK, and what a real chip does by itself.
#pragma once

#include "sdk/bf_types.h"

namespace Sdk {

// Frames arrive on a port.
void receive(bf_dev_port_t port, unsigned frames);

// Completes the reads that were accepted. A real SDK does this on a thread of its own.
void completeReads();

} // namespace Sdk

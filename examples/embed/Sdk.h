// The stub SDK's back side: what a real chip does by itself.
#pragma once

#include "sdk/bf_types.h"

namespace Sdk {

// Frames arrive on a port.
void receive(bf_dev_port_t port, unsigned frames);

// The chip answers the reads that it has accepted. A real SDK does this on a thread of its own.
void completeReads();

} // namespace Sdk

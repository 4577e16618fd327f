// Numbers as people read them.
#pragma once

#include "kiln/Types.h"

namespace ZelCtl {

// Up to 99999 as it is, above with four digits and a unit of thousands: "496.3M".
Kiln::String countText(U64 count);

// Per second. Three digits and a unit from 100,000 on; slow rates have a fraction, and never less than 0.1, so that a
// drop every few seconds does not look like none.
Kiln::String rateText(double rate);

// Of a port, in the unit of 10^9 bit/s: "100G", "0.1 Gb/s".
Kiln::String speedText(U64 bitsPerSecond, const char* unit);

// Of 1000: "7.5%", "100%"; what is more than 0 never looks like it.
Kiln::String perMilleText(U64 perMille, bool isZero);

} // namespace ZelCtl

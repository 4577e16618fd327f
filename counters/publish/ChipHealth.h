// How chips and agent fare, for whoever is shown it and for the shared tables.
#pragma once

#include "counters/chip/ManagerAccess.h"
#include "vex/ChipPublisher.h"

namespace ZelCounter {

// The chip's verdict, and its figures: its readings are counts by place, of this life of the chip; late completions are the
// process's.
Silo::Interface::ChipHealth healthOf(const ZelCounters& chip, const ManagerAccess& mgr);
// Objects that are kept for completions that are due or lost.
std::size_t deadObjects();
// With each polling pass, before it asks for anything: what is outstanding then has had a whole interval to come. Also
// says where interfaces are.
void publishHealth(const ZelCounters& chip, const ManagerAccess& mgr);
void publishAgentHealth(Vex::ChipPublisher& publisher);

} // namespace ZelCounter

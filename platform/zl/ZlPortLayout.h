// How the chip family lays out its ports, and how the switch's program numbers a port's entries in the counter
// tables. The library, the agent and whoever stands in for the chip read it here; the drop tables' reasons are in
// zl/ZlDropReasons.h.
#pragma once

#include "kiln/Types.h"

namespace ZlPort {

constexpr U16 maxPipes = 4; // of a chip

// A pipe has 128 slots in the numbering of device ports, a power of two, and ports at the lowest 68 of them:
// front-panel and internal ports, then the CPU port, then the recirculation port.
constexpr U16 slotsPerPipe = 128;
constexpr U16 portsPerPipe = 68;
constexpr U16 frontPanelPortsPerPipe = 64;
constexpr U16 cpuSlot = 66;
constexpr U16 recirculationSlot = 67;

constexpr U16 pipeOf(U16 devicePort) {
   return devicePort / slotsPerPipe;
}
constexpr U16 slotOf(U16 devicePort) {
   return devicePort % slotsPerPipe;
}
constexpr U16 devicePort(unsigned pipe, unsigned slot) {
   return static_cast<U16>(pipe * slotsPerPipe + slot);
}

// The queues of the port at a slot below portsPerPipe. No port has more than queueLimit.
constexpr unsigned queueLimit = 16;
constexpr unsigned queueCount(unsigned slot) {
   return slot == cpuSlot ? 14 : slot == recirculationSlot ? 2 : 8;
}

// A queue's entry in a pipe's block of the queue counter table.
constexpr U32 queueEntry(unsigned slot, unsigned queue) {
   // Each slot has 32 entries, and its queues begin at one of four offsets in turn; the recirculation port's are
   // the last two. Odd, but so the program numbers them.
   return (slot << 5 | (slot == recirculationSlot ? 30 : (slot & 3) << 3)) + queue;
}

// An entry of the PDP class table: a pipe's block has room for more slots than there are ports.
constexpr U32 pdpSlotsPerPipe = 73;
constexpr U32 pdpClassesPerSlot = 32;
constexpr U32 pdpTableSize = pdpSlotsPerPipe * pdpClassesPerSlot;
static_assert(pdpTableSize == 2336);

constexpr U32 pdpEntry(unsigned slot, U32 pdpClass) {
   return slot * pdpClassesPerSlot + pdpClass;
}

} // namespace ZlPort

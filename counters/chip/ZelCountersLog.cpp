// The catalogue of the library's messages. The message texts are fixed, odd spellings included ("exhaustion.Counter",
// "Statics"): operators' tools match them. Explanations and actions are free.
#include "counters/chip/ZelCountersLog.h"

namespace ZelCounter {

using Kiln::Severity;

const Kiln::LogMessage ZEL_COUNTERS_OVERFLOW_ERROR{
     "ZEL_COUNTERS_OVERFLOW_ERROR",
     Severity::error,
     "Received wrong hardware counter value for interface %s.",
     "A traffic counter of the interface ran over the top of its 64 bits and began again from zero. The "
     "published totals go on without a step; only raw readings start over.",
     "None. If the message comes back, compare the interface's traffic with its peer's: a real port needs "
     "years to count that far, so the chip may be faulty.",
     Kiln::EventKind::message,
     ""};

const Kiln::LogMessage ZEL_COUNTERS_COUNTER_RESOURCE_FULL{
     "ZEL_COUNTERS_COUNTER_RESOURCE_FULL",
     Severity::warning,
     "Unable to allocate counter for VLAN %d due to hardware resource exhaustion.Counter for this VLAN will "
     "not be available",
     "The chip's table of VLAN counters is full. The VLAN forwards as before, but its L3 interface is not "
     "counted. Programming is tried again when entries are given back.",
     "Remove L3 interfaces that are not needed, if the VLAN's counters are.",
     Kiln::EventKind::tableFull,
     "Vlan"};

const Kiln::LogMessage ZEL_COUNTERS_COUNTER_RESOURCE_NORMAL{
     "ZEL_COUNTERS_COUNTER_RESOURCE_NORMAL",
     Severity::notice,
     "Statics counter for VLAN %d was successfully programmed in hardware.",
     "A VLAN that could not be counted for want of entries is counted from now on, or is not to be counted "
     "any more.",
     "None.",
     Kiln::EventKind::message,
     "Vlan"};

const Kiln::LogMessage ZEL_COUNTERS_CHIP_SILENT{
     "ZEL_COUNTERS_CHIP_SILENT",
     Severity::warning,
     "Chip %s gives no answer, or errors, to reads of %s. These counters stand still.",
     "Reads of the chip's counters were refused, or not answered, for more than three polling intervals. "
     "What is shown and published of them is as old as the last answer, and says so. The chip is asked on "
     "and on, but "
     "for tables after an answer that was lost: their syncs go on when the chip is added again.",
     "Look at the chip's driver and its log. 'counters show health' says what is not answered, and why. If "
     "the driver is "
     "well and the tables stay old, take the chip away and add it again.",
     Kiln::EventKind::chipSilent,
     ""};

const Kiln::LogMessage ZEL_COUNTERS_CHIP_ANSWERS{"ZEL_COUNTERS_CHIP_ANSWERS",
                                                 Severity::notice,
                                                 "Chip %s answers again.",
                                                 "The chip's counters are read as usual. What it counted in "
                                                 "between is in the totals, if the hardware kept it.",
                                                 "None.",
                                                 Kiln::EventKind::chipAnswers,
                                                 ""};

} // namespace ZelCounter

// Published records as named numbers: one order and one set of names for everything that prints them.
#pragma once

#include "kiln/Types.h"
#include "silo/Record.h"
#include "vex/PublishedRecords.h"

#include <optional>
#include <vector>

namespace Vex {

// A counter of a record. Names are OpenConfig's, or formed alike: "in-octets", "queue.3.drops".
struct NamedCounter {
   Kiln::String name;
   U64 total = 0;
   std::optional<U64> reading{}; // where the record has one
   std::optional<double> rate{}; // of the last step, a second; where it is known
   bool isError = false;         // counts what should not happen
};

// A moment of a record, on the clock of its table; 0 for never.
struct NamedTime {
   Kiln::String name;
   double time = 0;
};

// What is read of a record as text.
struct RecordText {
   std::vector<NamedCounter> counters;
   std::vector<NamedTime> times;
   std::optional<double> interval{}; // seconds that the last step took; where it is known
   std::optional<U64> suspects{};    // where they are counted
};

RecordText textOf(const Silo::Interface::IntfCounters& record);
RecordText textOf(const Silo::Interface::L3IntfCounters& record);
// Of the queues that the interface has, in order, three counters each: packets, bytes, drops.
RecordText textOf(const Silo::Interface::IntfQueueCounters& record);
RecordText textOf(const Silo::Interface::NatCounter& record);

// A time or a rate as the nearest integer, for whoever can't take fractions.
S64 milliseconds(double seconds);
U64 wholeRate(double rate);

// One `name value` line a number. Readings go by name, and totals as "total.NAME"; where there are no readings,
// totals by name. Then rates as "rate.NAME", and what else the record says. `cleared` is the record as it stood
// at the last clear: each total less its own there goes by "NAME-since-clear"; null for no such lines.
Kiln::String linesOf(const RecordText& text, const Silo::RecordInfo& info, const RecordText* cleared);

} // namespace Vex

// Published records as named numbers: one order and one set of names for all printers.
#pragma once

#include "kiln/Types.h"
#include "silo/Record.h"
#include "vex/PublishedChip.h"
#include "vex/PublishedRecords.h"

#include <optional>
#include <vector>

namespace Vex {

// A counter of a record. Names are OpenConfig's, or formed like them: "in-octets". Those of a place are its kind, its
// name and a value's: "queue.3.drops", "drops.ingress ACL denied.packets". Neither kinds nor values have a point in them.
struct NamedCounter {
   Kiln::String name;
   U64 total = 0;
   std::optional<U64> reading{}; // where the record has one
   std::optional<double> rate{}; // of the last step, per second; if known
   bool isError = false;         // counts what should not happen
   bool isRead = true;           // false: its 0 was never read
   double readTime = 0;          // of a place that is read on its own, on the clock of its table
};

// What a record says in a word, such as a verdict.
struct NamedWord {
   Kiln::String name;
   Kiln::String word;
};

// A moment of a record, on the clock of its table; 0 for never, or not known. All records have "discontinuity" and
// "created".
struct NamedTime {
   Kiln::String name;
   double time = 0;
};

// A record for printing.
struct RecordText {
   std::vector<NamedCounter> counters;
   std::vector<NamedTime> times;
   std::optional<double> interval{}; // seconds that the last step took; if known
   std::optional<U64> suspects{};    // where the record counts them
   std::optional<U64> speed{};       // of a port, bit/s; 0: not known
   bool isRated = true;              // false: records of this kind have no rates
   std::vector<NamedWord> words{};

   // 0 for a name that the record does not have.
   double time(std::string_view name) const;
   // Nothing for a name that the record does not have.
   std::optional<Kiln::String> word(std::string_view name) const;
};

RecordText textOf(const Silo::Interface::IntfCounters& record);
RecordText textOf(const Silo::Interface::L3IntfCounters& record);
// Three counters for each queue that the interface has, in order: packets, bytes, drops.
RecordText textOf(const Silo::Interface::IntfQueueCounters& record);
RecordText textOf(const Silo::Interface::NatCounter& record);
// Places in the order of the record. A reason or class without a name is there only if it counts something.
RecordText textOf(const Silo::Interface::IntfDropCounters& record);
RecordText textOf(const Silo::Interface::IntfPdpCounters& record);
RecordText textOf(const Silo::Interface::PipeStageCounters& record);
RecordText textOf(const Silo::Interface::PipeDropCounters& record);
RecordText textOf(const Silo::Interface::PipeTmCounters& record);
// Its counters have plain names; those of now, such as "outstanding", are among them.
RecordText textOf(const Silo::Interface::ChipHealth& record);

// The counts since the clear that the clear record was made at, in the order of the record's counters; never more than
// the totals. They are the totals if the clear record is not of this record's life: of another creation time, or with a
// total above the record's.
std::vector<U64> sinceClear(const RecordText& text, const RecordText& cleared);

// A time or a rate as the nearest integer.
S64 milliseconds(double seconds);
U64 wholeRate(double rate);

// One `name value` line per number: readings as "NAME" and totals as "total.NAME", or totals as "NAME" in a record
// without readings; then rates as "rate.NAME", then the rest. `cleared` is the record at the last clear: it adds a line
// "NAME-since-clear" per total. Null for no such lines.
Kiln::String linesOf(const RecordText& text, const Silo::RecordInfo& info, const RecordText* cleared);

} // namespace Vex

// Moments and spans of time as people type and read them, on the clock of a shared table.
#pragma once

#include "kiln/Types.h"
#include "silo/TableHeader.h"

#include <optional>

namespace ZelCtl {

// A table's clock, tied to the calendar. Simulated time has the dates of 1970, UTC; the machine's has those of here.
struct TableClock {
   double now = 0;        // by the table's clock. Of simulated time, the newest sample's
   double unixOffset = 0; // seconds since 1970 less the table's
   bool isSimulated = false;
   bool isOfHere = true; // false: of another boot of the machine, so that nothing is known of its times

   // `newest` is the time of the newest sample that is looked at.
   static TableClock of(const Silo::TableState& state, double newest);

   Kiln::String timeText(double time) const;        // "14:05:09"
   Kiln::String dateAndTimeText(double time) const; // "2026-11-22 14:05:09"
};

// "90s", "5m", "1h30m", "2d": seconds; none if it is no such text.
std::optional<double> parseDuration(const Kiln::String& text);
// "5 min", "1 h 30 min", "45 s".
Kiln::String durationText(double seconds);

// "14:05", "14:05:09" or "2026-11-22 14:05:09" (also with T between): a time by the table's clock. Without a date it is
// of today, unless it is yet to come and was less than twelve hours ago yesterday. None if it is no such text.
std::optional<double> parseTime(const Kiln::String& text, const TableClock& clock);

} // namespace ZelCtl

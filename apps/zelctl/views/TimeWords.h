// Moments and spans of time among the words of a command.
#pragma once

#include "apps/zelctl/views/TimeSpan.h"

#include <vector>

namespace ZelCtl {

// The time that begins at words[*at], by the table's clock; `*at` moves to its last word, since a date and a time are two.
// Quotation marks around it are left out. Throws std::runtime_error, naming the word before it and what was expected.
double takeTime(const std::vector<Kiln::String>& words, std::size_t* at, const TableClock& clock);
// The duration at words[at], in seconds. Throws likewise.
double takeDuration(const std::vector<Kiln::String>& words, std::size_t at);

// "14:05:09" of the day that it is by the clock, otherwise with its date. `unixTime` in seconds since 1970.
Kiln::String momentText(double unixTime, const TableClock& clock);

} // namespace ZelCtl

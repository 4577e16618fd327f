// Moments and spans of time among the words of a command.
#pragma once

#include "apps/zelctl/views/TimeSpan.h"

#include <vector>

namespace ZelCtl {

// Refuses a keyword that is among the words already. Throws std::runtime_error.
void refuseAgain(bool isThere, const Kiln::String& keyword);

// A span as `last`, `from` and `to` say it; none of them for all that there is.
struct AskedSpan {
   std::optional<double> last; // seconds up to now
   std::optional<double> from; // by the clock
   std::optional<double> to;   // not after now

   // Reads what follows words[*at] if the keyword that it stands for is one of the three, and moves `*at` to its last word.
   // Throws std::runtime_error, saying what is wrong and what was expected.
   bool take(const Kiln::String& keyword, const std::vector<Kiln::String>& words, std::size_t* at,
             const TableClock& clock);
   // After all words. A span that begins and ends in the same second is that second. Throws likewise.
   void finish(const TableClock& clock);
};

// The time that begins at words[*at], by the table's clock; `*at` moves to its last word, since a date and a time are two.
// Quotation marks around it are left out. Throws std::runtime_error, naming the word before it and what was expected.
double takeTime(const std::vector<Kiln::String>& words, std::size_t* at, const TableClock& clock);
// What is not before now is refused.
double takePastTime(const std::vector<Kiln::String>& words, std::size_t* at, const TableClock& clock);
// The duration at words[at], in seconds. Throws likewise.
double takeDuration(const std::vector<Kiln::String>& words, std::size_t at);

// Whether a time or a duration follows the word: after `last`, `from`, `to` and `since`.
bool isTimeWord(const Kiln::String& word);
// What may follow it; times are nobody's to guess.
std::vector<Kiln::String> timeCandidates(const Kiln::String& word);
// Whether the word is of another kind of span than the one that is asked for among the words.
bool isRefusedAfter(const Kiln::String& word, const std::vector<Kiln::String>& words);

// "14:05:09" of the day that it is by the clock, otherwise with its date. `unixTime` in seconds since 1970.
Kiln::String momentText(double unixTime, const TableClock& clock);

} // namespace ZelCtl

// `since` and `last`: what records counted over a span of time, from the history or since the clear.
#pragma once

#include "apps/zelctl/views/PublishedRows.h"

namespace ZelCtl {

struct View;

// Since when counts are asked for.
struct Since {
   std::optional<double> time; // by the table's clock; none: since the clear
   // Whether nothing is to be counted of before a gap, which otherwise a row with an earlier begin does.
   bool isStrict = false;
};

// Reads what follows the word `since` at words[*at]; `*at` moves to the last word that belongs to it. Throws
// std::runtime_error, saying what was expected.
Since takeSince(const std::vector<Kiln::String>& words, std::size_t* at, const TableClock& clock);

// Gives each row of these names, or each of all if there are none, what was counted since then: counters with a past only.
// Notes of the table say the rest. Throws std::runtime_error if no history can reach back so far, or nothing was sampled
// since; says what there is.
void countSince(const Since& since, const View& view, const std::vector<Kiln::String>& names,
                PublishedTable* table, const Silo::Store& store);

// "since 14:05:09, 5 min ago".
Kiln::String sinceText(const Since& since, const TableClock& clock);
// ", over the last 5 min": the span of the rows' counts if it is what was asked for; otherwise when it begins and ends.
Kiln::String lastText(const PublishedTable& table, double seconds, double interval);
// When the row's counts begin, if that is not what was asked for; otherwise empty.
Kiln::String beginText(const PublishedRow& row, const TableClock& clock);

} // namespace ZelCtl

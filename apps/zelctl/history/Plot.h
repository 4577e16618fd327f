// Numbers over time, drawn with characters.
#pragma once

#include "kiln/Types.h"

#include <functional>
#include <optional>
#include <utility>
#include <vector>

namespace ZelCtl {

// Times are seconds on any clock; a text is what people call a time or a value.
using TextOf = std::function<Kiln::String(double)>;

// The columns of a plot, each of which is an equal stretch of time.
struct TimeGrid {
   double begin = 0;
   double column = 1; // seconds
   std::size_t columns = 1;

   // Covers the span with at most so many columns of a round length, none shorter than `least`. They begin at round
   // times of the clock that is `offset` later.
   static TimeGrid covering(double begin, double end, double least, std::size_t most, double offset);

   double at(std::size_t index) const { return begin + static_cast<double>(index) * column; }
   // The columns that hold some of the stretch: the first, and the one after the last.
   std::pair<std::size_t, std::size_t> columnsOf(double from, double to) const;
};

struct PlotColumn {
   std::optional<double> value; // none where it is not known
   double peak = 0;             // the highest within the column; not less than the value
};

enum class Charset : U8 { ascii, utf8 };

// One line, from zero to the highest value. Zero looks different from little, and both from what is not known.
Kiln::String plotLine(const std::vector<PlotColumn>& columns, Charset charset);

struct TallPlot {
   std::vector<Kiln::String> lines; // from above, each with an axis on its left
   std::size_t left = 0;            // columns before the plot itself
   bool hasPeaks = false;           // peaks stand above values
};
// Several lines, with an axis of values from zero to the highest peak.
TallPlot plotTall(const std::vector<PlotColumn>& columns, Charset charset, const TextOf& textOf);

// The line below a plot: a mark where each round time begins, and its text. `offset` as above.
Kiln::String timeAxis(const TimeGrid& grid, double offset, Charset charset, const TextOf& timeText);

} // namespace ZelCtl

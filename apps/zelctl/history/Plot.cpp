// Chooses round numbers and characters.
#include "apps/zelctl/history/Plot.h"

#include "apps/zelctl/terminal/Utf8.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <span>
#include <string_view>

namespace ZelCtl {

namespace {

using Kiln::String;

constexpr double day = 86400;
constexpr std::array roundTimes{0.5,  1.,   2.,   3.,    4.,    5.,    6.,     8.,     10.,
                                12.,  15.,  20.,  30.,   40.,   60.,   90.,    120.,   180.,
                                300., 600., 900., 1800., 3600., 7200., 14400., 43200., day};
constexpr std::array tickTimes{1.,   2.,   5.,    10.,   15.,   30.,    60.,    120., 300.,
                               600., 900., 1800., 3600., 7200., 14400., 43200., day};

// The smallest of them that is not below `least`; beyond a day, whole days.
double roundUp(std::span<const double> rounds, double least) {
   const auto found = std::ranges::lower_bound(rounds, least);
   return found == rounds.end() ? std::ceil(least / day) * day : *found;
}

// What a filled character says, from nothing but a zero to a whole row.
constexpr std::size_t eighths = 8;
constexpr std::array<std::string_view, eighths> blocks{"▁", "▂", "▃", "▄", "▅", "▆", "▇", "█"};
constexpr std::array<std::string_view, eighths> strokes{"_", ".", ":", "-", "=", "+", "*", "#"};

// 0 for a zero, else 1 to 7.
std::size_t levelOf(double value, double highest) {
   constexpr double steps = eighths - 1;
   const double level = std::ceil(value / highest * steps - 1e-9);
   return value <= 0 ? 0 : static_cast<std::size_t>(std::clamp(level, 1., steps));
}

double highestOf(const std::vector<PlotColumn>& columns, bool ofPeaks) {
   double highest = 0;
   for (const PlotColumn& one : columns) {
      highest = std::max(highest, one.value ? (ofPeaks ? one.peak : *one.value) : 0);
   }
   return highest;
}

// The distance of two marks of an axis from 0: at most five of them reach the highest value.
double roundStep(double highest) {
   constexpr double most = 5;
   if (highest <= 0) {
      return 1;
   }
   double step = std::pow(10., std::floor(std::log10(highest / most)));
   for (const double factor : {2., 2.5, 2.}) { // 1, 2, 5, 10
      step *= highest / step > most + 1e-9 ? factor : 1;
   }
   return step;
}

// One character of a tall plot: the row holds values from `bottom` on, `height` of them. Empty for nothing.
std::string_view cellOf(const PlotColumn& column, double bottom, double height, Charset charset) {
   const bool isLowest = bottom <= 0;
   if (!column.value) {
      return "";
   }
   const double filled = (*column.value - bottom) / height;
   const bool hasPeak = column.peak - bottom > height / 2 && filled < 0.5;
   if (filled > 0 && !hasPeak) {
      const double level = std::ceil(filled * eighths - 1e-9);
      // The lowest level of the lowest row is a zero's.
      const double least = isLowest ? 2 : 1;
      const auto index = static_cast<std::size_t>(std::clamp(level, least, double{eighths}));
      if (charset == Charset::utf8) {
         return blocks[index - 1];
      }
      return index > eighths / 2 ? "#" : ".";
   }
   if (hasPeak) {
      return charset == Charset::utf8 ? "░" : ":";
   }
   return !isLowest ? "" : charset == Charset::utf8 ? blocks.front() : strokes.front();
}

void cutBlanks(String* line) {
   line->resize(line->find_last_not_of(' ') + 1);
}

} // namespace

TimeGrid TimeGrid::covering(double begin, double end, double least, std::size_t most, double offset) {
   TimeGrid grid;
   const double span = std::max(end - begin, 1e-3);
   double wanted = std::max(least, span / static_cast<double>(most));
   do {
      grid.column = roundUp(roundTimes, wanted);
      grid.begin = std::floor((begin + offset) / grid.column + 1e-6) * grid.column - offset;
      grid.columns = static_cast<std::size_t>(std::ceil((begin + span - grid.begin) / grid.column - 1e-6));
      wanted = grid.column * 1.01;
   } while (grid.columns > most);
   return grid;
}

std::pair<std::size_t, std::size_t> TimeGrid::columnsOf(double from, double to) const {
   const auto limit = static_cast<double>(columns);
   const double first = std::clamp(std::floor((from - begin) / column + 1e-6), 0., limit);
   const double end = std::clamp(std::ceil((to - begin) / column - 1e-6), first, limit);
   return {static_cast<std::size_t>(first), static_cast<std::size_t>(end)};
}

String plotLine(const std::vector<PlotColumn>& columns, Charset charset) {
   const double highest = highestOf(columns, false);
   String line;
   for (const PlotColumn& one : columns) {
      line += !one.value ? " " : (charset == Charset::utf8 ? blocks : strokes)[levelOf(*one.value, highest)];
   }
   return line;
}

TallPlot plotTall(const std::vector<PlotColumn>& columns, Charset charset, const TextOf& textOf) {
   constexpr std::size_t rowsPerMark = 3;
   const bool isUtf8 = charset == Charset::utf8;
   const double highest = highestOf(columns, true);
   const double step = roundStep(highest);
   const auto marks = static_cast<std::size_t>(std::max(std::ceil(highest / step - 1e-9), 1.));
   std::size_t width = 0;
   for (std::size_t mark = 0; mark <= marks; ++mark) {
      width = std::max(width, textOf(static_cast<double>(mark) * step).size());
   }
   TallPlot plot;
   plot.left = width + 2;
   // The row above the highest mark has its text only.
   for (std::size_t row = marks * rowsPerMark + 1; row-- > 0;) {
      const bool isMark = row % rowsPerMark == 0;
      String text = isMark ? textOf(static_cast<double>(row / rowsPerMark) * step) : "";
      String line = String(width - text.size(), ' ') + text + ' ';
      line += isMark ? (isUtf8 ? "┤" : "+") : (isUtf8 ? "│" : "|");
      const double height = step / rowsPerMark;
      for (const PlotColumn& one : columns) {
         const std::string_view cell = cellOf(one, static_cast<double>(row) * height, height, charset);
         plot.hasPeaks = plot.hasPeaks || cell == "░" || cell == ":";
         line += cell.empty() ? " " : cell;
      }
      cutBlanks(&line);
      plot.lines.push_back(std::move(line));
   }
   return plot;
}

String timeAxis(const TimeGrid& grid, double offset, Charset charset, const TextOf& timeText) {
   constexpr std::size_t shortest = 7; // a mark, hours and minutes, and a blank
   constexpr std::size_t longest = 10; // seconds, too
   constexpr double minute = 60;
   double step = roundUp(tickTimes, shortest * grid.column);
   const bool hasSeconds = step < minute;
   step = hasSeconds ? roundUp(tickTimes, longest * grid.column) : step;
   String line;
   for (double time = std::ceil((grid.begin + offset) / step - 1e-6) * step - offset;
        time < grid.at(grid.columns) - 1e-6; time += step) {
      const std::size_t at = grid.columnsOf(time, time).first;
      line.append(at - std::min(at, columnsIn(line)), ' ');
      String text = timeText(time);
      if (step >= minute) {
         text.resize(text.rfind(':')); // all seconds are 0
      }
      line += (charset == Charset::utf8 ? "└" : "|") + text;
   }
   return line;
}

} // namespace ZelCtl

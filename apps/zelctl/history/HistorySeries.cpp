// Divides differences of totals by time.
#include "apps/zelctl/history/HistorySeries.h"

#include <algorithm>
#include <cmath>

namespace ZelCtl {

using Kiln::String;

HistorySeries::HistorySeries(const PastSamples& past, std::size_t field, const TimeSpan& span, Values values,
                             unsigned factor)
     : values_(values) {
   double counted = 0;
   for (std::size_t i = 1; i < past.samples.size(); ++i) {
      const TimeSpan step{past.samples[i - 1].time, past.samples[i].time};
      const TimeSpan within{std::max(step.begin, span.begin), step.end};
      // What is counted is the difference of samples within the span, a rate also that of a part of its first step.
      const bool isWhole = within.begin == step.begin;
      if (step.end > span.end || within.seconds() <= 0 || (values == Values::counts && !isWhole)) {
         continue;
      }
      const std::optional<U64> count = past.step(i, field);
      counted += static_cast<double>(count.value_or(0)) * factor;
      endsKnown_ = count && past.isStepTimed(i, field);
      if (endsKnown_) {
         const double rate = static_cast<double>(*count) * factor / step.seconds();
         stretches_.push_back({within, values == Values::rates ? rate : counted});
      }
   }
}

std::vector<PlotColumn> HistorySeries::columns(const TimeGrid& grid) const {
   struct Sum {
      double seconds = 0;
      double product = 0;
      double peak = 0;
   };
   std::vector<Sum> sums(grid.columns);
   for (const Stretch& one : stretches_) {
      const auto [first, end] = grid.columnsOf(one.time.begin, one.time.end);
      for (std::size_t i = first; i < end; ++i) {
         const double seconds = std::min(one.time.end, grid.at(i + 1)) - std::max(one.time.begin, grid.at(i));
         sums[i].seconds += seconds;
         sums[i].product += seconds * one.value;
         sums[i].peak = std::max(sums[i].peak, one.value);
      }
   }
   std::vector<PlotColumn> columns(grid.columns);
   for (std::size_t i = 0; i < grid.columns; ++i) {
      if (sums[i].seconds > 0) {
         const double mean = sums[i].product / sums[i].seconds;
         columns[i] = {values_ == Values::rates ? mean : sums[i].peak, sums[i].peak};
      }
   }
   return columns;
}

std::optional<Statistics> HistorySeries::statistics() const {
   constexpr double percent95 = 0.95;
   if (stretches_.empty()) {
      return std::nullopt;
   }
   std::vector<double> values;
   double seconds = 0;
   double product = 0;
   const Stretch* highest = &stretches_.front();
   for (const Stretch& one : stretches_) {
      values.push_back(one.value);
      seconds += one.time.seconds();
      product += one.time.seconds() * one.value;
      highest = one.value > highest->value ? &one : highest;
   }
   std::ranges::sort(values);
   // The least of the values that 95 percent of them do not exceed.
   const auto rank = static_cast<std::size_t>(std::ceil(percent95 * static_cast<double>(values.size())));
   return Statistics{values.front(), product / seconds, values[rank - 1], highest->value, highest->time.end};
}

std::optional<double> HistorySeries::last() const {
   return endsKnown_ ? std::optional(stretches_.back().value) : std::nullopt;
}

HistoryMarks HistoryMarks::of(const PastSamples& past, const TimeSpan& span) {
   HistoryMarks marks;
   const auto addGap = [&](double from, double to) {
      if (past.isGap(to - from) && to > span.begin && from < span.end) {
         marks.gaps.push_back({from, to});
      }
   };
   double before = span.begin;
   for (const Silo::HistorySample& one : past.samples) {
      addGap(before, one.time);
      before = one.time;
      if (one.time <= span.begin || one.time > span.end) {
         continue;
      }
      if (one.has(Silo::SampleFlag::begun)) {
         marks.begins.push_back(one.time);
      } else if (one.has(Silo::SampleFlag::discontinuity)) {
         marks.discontinuities.push_back(one.time);
      }
   }
   addGap(before, span.end);
   return marks;
}

String HistoryMarks::line(const TimeGrid& grid) const {
   String line(grid.columns, ' ');
   for (const TimeSpan& gap : gaps) {
      const auto [first, end] = grid.columnsOf(gap.begin, gap.end);
      std::fill(line.begin() + static_cast<std::ptrdiff_t>(first),
                line.begin() + static_cast<std::ptrdiff_t>(end), '-');
   }
   const auto mark = [&](const std::vector<double>& times, char with) {
      for (const double time : times) {
         // A step that ends with a column belongs to it.
         line[std::max<std::size_t>(grid.columnsOf(time, time).second, 1) - 1] = with;
      }
   };
   mark(discontinuities, '!');
   mark(begins, '+');
   return line;
}

} // namespace ZelCtl

// What a counter did over a span of time, as its samples tell.
#pragma once

#include "apps/zelctl/history/Plot.h"
#include "apps/zelctl/views/PastSamples.h"

#include <optional>
#include <utility>
#include <vector>

namespace ZelCtl {

struct TimeSpan {
   double begin = 0;
   double end = 0;

   double seconds() const { return end - begin; }
};

// The time between two samples, and what was so all the while.
struct Stretch {
   TimeSpan time;
   double value = 0;
};

struct Statistics {
   double least = 0;
   double mean = 0; // over the time that is known
   double percentile95 = 0;
   double highest = 0;
   double highestTime = 0; // when it ended
};

// Rates per second, or what was counted since the span's first sample. Nothing is known of the time between samples that
// lie too far apart, and of steps of a total that went back.
class HistorySeries {
 public:
   enum class Values : U8 { rates, counts };

   // `factor` is from the field's unit to that of the values.
   HistorySeries(const PastSamples& past, std::size_t field, const TimeSpan& span, Values values,
                 unsigned factor);

   // A column has the mean of the rates in it, or its last count.
   std::vector<PlotColumn> columns(const TimeGrid& grid) const;
   std::optional<Statistics> statistics() const; // none: nothing is known
   std::optional<double> last() const;           // of the last step

 private:
   Values values_;
   std::vector<Stretch> stretches_; // within the span, in order
   bool endsKnown_ = false;
};

// What the samples of a ring say of their own continuity within the span.
struct HistoryMarks {
   std::vector<TimeSpan> gaps;          // whole, also where they reach beyond the span
   std::vector<double> discontinuities; // when the sample after one was taken
   std::vector<double> begins;          // likewise, of a new record

   static HistoryMarks of(const PastSamples& past, const TimeSpan& span);
   bool isEmpty() const { return gaps.empty() && discontinuities.empty() && begins.empty(); }
   // A line below a plot: '-' where a gap is, '!' for a discontinuity, '+' for a new record.
   Kiln::String line(const TimeGrid& grid) const;
};

} // namespace ZelCtl

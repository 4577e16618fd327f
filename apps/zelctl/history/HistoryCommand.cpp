// Finds the samples, and lays plots out between names and figures.
#include "apps/zelctl/history/HistoryCommand.h"

#include "apps/zelctl/history/HistoryDocument.h"
#include "apps/zelctl/terminal/Terminal.h"
#include "apps/zelctl/terminal/Utf8.h"
#include "apps/zelctl/views/PublishedRows.h"
#include "apps/zelctl/views/Readable.h"
#include "kiln/Choices.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <map>
#include <stdexcept>
#include <utility>

namespace ZelCtl {

namespace {

using Kiln::String;
using Values = HistorySeries::Values;
using Words = std::vector<String>;

// How a counter's values are called.
struct Unit {
   const char* rate;
   unsigned factor; // from the counter's own unit
};

Unit unitOf(const String& counter, Values values) {
   const bool isBytes = counter.ends_with("octets") || counter.ends_with("bytes");
   return values == Values::counts ? Unit{"", 1} : isBytes ? Unit{"bit/s", 8} : Unit{"/s", 1};
}

String valueText(double value, Values values) {
   return values == Values::rates ? rateText(value) : countText(static_cast<U64>(std::llround(value)));
}

// The groups of an interface: its own counters, and those of each eight queues, which are one ring.
std::vector<HistoryGroup> groupsOf(const String& intf, const Words& counters, PastTables* past) {
   std::map<std::pair<PastTable::Kind, std::size_t>, HistoryGroup> rings;
   for (const String& name : counters) {
      const PastCounter counter = *PastCounter::named(name);
      const std::size_t ring = counter.queue / Silo::Interface::IntfQueueHistory::queuesPerRing;
      HistoryGroup& group = rings[{counter.kind, ring}];
      if (group.intf.empty()) {
         group.intf = intf;
         group.past = past->of(counter.kind).samples(intf, counter.queue);
      }
      group.counters.push_back(name);
      group.fields.push_back(counter.field);
   }
   std::vector<HistoryGroup> groups;
   for (auto& [ring, group] : rings) {
      if (!group.past.samples.empty()) {
         groups.push_back(std::move(group));
      }
   }
   return groups;
}

// Times of another start of the machine are told from the end of the history.
struct TimeTexts {
   const TableClock& clock;

   double offset() const { return clock.isOfHere ? clock.unixOffset : -clock.now; }
   String operator()(double time) const {
      if (clock.isOfHere) {
         return clock.timeText(time);
      }
      const auto ago = static_cast<U64>(std::llround(std::max(clock.now - time, 0.)));
      char text[32];
      std::snprintf(text, sizeof text, "-%02u:%02u:%02u", static_cast<unsigned>(ago / 3600),
                    static_cast<unsigned>(ago / 60 % 60), static_cast<unsigned>(ago % 60));
      return text;
   }
   // With the date, if it is not today's.
   String full(double time) const {
      constexpr double day = 86400;
      return clock.isOfHere && clock.now - time > day / 2 ? clock.dateAndTimeText(time) : (*this)(time);
   }
};

// From when to when there are samples, and how far back the rings could hold them.
struct Held {
   TimeSpan time;
   double depth = 0; // seconds
};

Held heldIn(const std::vector<HistoryGroup>& groups, PastTables* past) {
   Held held{{INFINITY, -INFINITY}, 0};
   for (const HistoryGroup& group : groups) {
      const bool isOfPorts = PastCounter::named(group.counters.front())->kind == PastTable::Kind::ports;
      PastTable& table = isOfPorts ? past->ports() : past->queues();
      held.time.begin = std::min(held.time.begin, group.past.samples.front().time);
      held.time.end = std::max(held.time.end, group.past.samples.back().time);
      held.depth = std::max(held.depth, static_cast<double>(table.depth()) * group.past.interval);
   }
   return held;
}

TimeSpan spanOf(const HistoryRequest& request, const TableClock& clock, const Held& held) {
   const AskedSpan& asked = request.span;
   const bool isAll = !asked.last && !asked.from && !asked.to;
   TimeSpan span = held.time;
   if (!isAll) {
      span.end = asked.to.value_or(clock.now);
      span.begin = asked.last ? clock.now - *asked.last : asked.from.value_or(held.time.begin);
   }
   const bool isMissed = span.end <= held.time.begin || span.begin >= held.time.end;
   if (isAll || (!isMissed && span.begin >= std::min(held.time.begin, held.time.end - held.depth))) {
      return span;
   }
   const TimeTexts texts{clock};
   const String begin = texts.full(held.time.begin);
   const String end = texts.full(held.time.end);
   const auto seconds = static_cast<U64>(held.time.seconds());
   const bool tryLast = asked.last && clock.now - held.time.end < held.time.seconds();
   const String lastWord = seconds < 120 ? std::to_string(seconds) + "s" : std::to_string(seconds / 60) + "m";
   throw std::runtime_error(String(isMissed ? "no samples then" : "that is beyond the history") +
                            ": there are some from " + begin + " to " + end + " (" +
                            durationText(held.time.seconds()) + "): " +
                            (tryLast          ? "try: last " + lastWord
                             : clock.isOfHere ? "try: from " + begin + " to " + end
                                              : "leave out the times to see all"));
}

// One counter of one interface, ready to be drawn.
struct Line {
   String name;
   String unit;
   HistorySeries series;
   std::vector<String> figures;
};

class Picture {
 public:
   Picture(const HistoryAnswer& answer, std::size_t width, Charset charset)
        : answer_(answer), texts_{answer.clock}, width_(width), charset_(charset) {}

   String text() {
      const bool isTall = answer_.groups.size() == 1 && answer_.groups.front().counters.size() == 1;
      layOut(isTall);
      String all = heading();
      if (isTall) {
         addTall(&all, answer_.groups.front());
      } else {
         for (std::size_t i = 0; i < answer_.groups.size(); ++i) {
            addLines(&all, i);
         }
      }
      return all;
   }

 private:
   bool isRates() const { return answer_.request.values == Values::rates; }
   Words figureNames() const {
      // Of a time that has passed, the last value is not that of now.
      const bool isNow = answer_.isWriterAlive && answer_.clock.now - answer_.span.end < leastInterval();
      return isRates() ? Words{"min", "mean", "p95", "max", isNow ? "now" : "last"}
                       : Words{"counted", "total"};
   }

   double leastInterval() const {
      double least = INFINITY;
      for (const HistoryGroup& group : answer_.groups) {
         least = std::min(least, group.past.interval);
      }
      return least;
   }

   Line lineOf(const HistoryGroup& group, std::size_t index) const {
      const Unit unit = unitOf(group.counters[index], answer_.request.values);
      Line line{
           group.counters[index],
           unit.rate,
           HistorySeries(group.past, group.fields[index], answer_.span, answer_.request.values, unit.factor),
           {}};
      const std::optional<Statistics> found = line.series.statistics();
      const auto text = [&](const std::optional<double>& value) {
         return value ? valueText(*value, answer_.request.values) : String("-");
      };
      if (!isRates()) {
         const auto samples = answer_.samplesOf(group);
         const auto total = samples.empty() ? std::nullopt : group.totalIn(*samples.back(), index);
         line.figures = {found ? text(found->highest) : "-", total ? countText(*total) : "-"};
      } else if (found) {
         line.figures = {text(found->least), text(found->mean), text(found->percentile95),
                         text(found->highest), text(line.series.last())};
      } else {
         line.figures = Words(figureNames().size(), "-");
      }
      return line;
   }

   // Measures names and figures; the plot gets the rest.
   void layOut(bool isTall) {
      const Words names = figureNames();
      figureWidth_ = 0;
      for (const String& name : names) {
         figureWidth_ = std::max(figureWidth_, name.size());
      }
      for (const HistoryGroup& group : answer_.groups) {
         lines_.emplace_back();
         for (std::size_t i = 0; i < group.counters.size(); ++i) {
            Line line = lineOf(group, i);
            left_ = std::max(left_, line.name.size() + line.unit.size() + 1);
            for (const String& figure : line.figures) {
               figureWidth_ = std::max(figureWidth_, figure.size());
            }
            lines_.back().push_back(std::move(line));
         }
      }
      constexpr std::size_t tallAxis = 8; // the widest value, a blank, and the axis
      constexpr std::size_t least = 8;
      const std::size_t taken = isTall ? tallAxis : left_ + 1 + names.size() * (figureWidth_ + 1) + 1;
      const std::size_t room = width_ > taken + least ? width_ - taken : least;
      grid_ =
           TimeGrid::covering(answer_.span.begin, answer_.span.end, leastInterval(), room, texts_.offset());
   }

   String sentence(const String& text) const {
      String lines;
      for (const String& line : wrapped(text, width_)) {
         lines += line + "\n";
      }
      return lines;
   }

   double newest() const {
      double newest = -INFINITY;
      for (const HistoryGroup& group : answer_.groups) {
         newest = std::max(newest, group.past.samples.back().time);
      }
      return newest;
   }

   String newestText(Activity activity, double time) const {
      const bool isKnown = answer_.clock.isOfHere && !answer_.clock.isSimulated;
      return String(ZelCtl::text(activity)) + ": the newest sample is of " + texts_.full(time) +
             (isKnown ? ", " + Kiln::durationText(answer_.clock.now - time) + " ago" : "");
   }

   String heading() const {
      const TimeSpan& span = answer_.span;
      const bool isTall = lines_.size() == 1 && lines_.front().size() == 1;
      String text = isTall ? answer_.groups.front().intf + " " + titleOf(lines_.front().front()) + ": " : "";
      text += texts_.full(span.begin) + " to " + texts_.full(span.end) + " (" + durationText(span.seconds()) +
              "), a column is " + columnText();
      if (!isRates() && !isTall) {
         text += "; counted since " + texts_(span.begin);
      }
      text = sentence(text);
      if (!answer_.isWriterAlive) {
         text += sentence(newestText(Activity::agentGone, newest()));
      }
      return text;
   }

   String titleOf(const Line& line) const {
      return line.name + (isRates() ? (line.unit == "/s" ? line.unit : " " + line.unit)
                                    : ", counted since " + texts_(answer_.span.begin));
   }

   String columnText() const {
      return grid_.column < 1 ? std::to_string(std::lround(grid_.column * 1000)) + " ms"
                              : durationText(grid_.column);
   }

   void addLines(String* all, std::size_t index) {
      const HistoryGroup& group = answer_.groups[index];
      const bool isFirst = index == 0 || answer_.groups[index - 1].intf != group.intf;
      const bool isLast = index + 1 == answer_.groups.size() || answer_.groups[index + 1].intf != group.intf;
      if (isFirst) {
         *all += "\n" + padded(group.intf, left_ + 1 + grid_.columns) + figuresText(figureNames());
      }
      for (const Line& line : lines_[index]) {
         const String name = line.name + String(left_ - line.name.size() - line.unit.size(), ' ') + line.unit;
         *all += name + " " + plotLine(line.series.columns(grid_), charset_) + figuresText(line.figures);
      }
      const HistoryMarks marks = HistoryMarks::of(group.past, answer_.span);
      if (!marks.isEmpty()) {
         *all += trimmed(String(left_ + 1, ' ') + marks.line(grid_));
      }
      if (isLast) {
         *all += trimmed(String(left_ + 1, ' ') + axis());
      }
      const String legend = legendOf(group, marks);
      legends_ += legends_.find(legend) == String::npos ? legend : "";
      if (isLast) {
         *all += std::exchange(legends_, "");
      }
   }

   void addTall(String* all, const HistoryGroup& group) const {
      const Line& line = lines_.front().front();
      const Values values = answer_.request.values;
      const TallPlot plot = plotTall(line.series.columns(grid_), charset_,
                                     [values](double value) { return valueText(value, values); });
      for (const String& one : plot.lines) {
         *all += one + "\n";
      }
      const HistoryMarks marks = HistoryMarks::of(group.past, answer_.span);
      if (!marks.isEmpty()) {
         *all += trimmed(String(plot.left, ' ') + marks.line(grid_));
      }
      *all += trimmed(String(plot.left, ' ') + axis());
      const std::optional<Statistics> found = line.series.statistics();
      const Words names = figureNames();
      Words parts;
      for (std::size_t i = 0; i < names.size(); ++i) {
         parts.push_back((names[i] == "p95" ? "95th percentile" : names[i]) + " " + line.figures[i]);
         if (names[i] == "max" && found && found->highest > 0) {
            parts.back() += " at " + texts_(found->highestTime);
         }
      }
      *all += sentence(Kiln::joined(parts, ", "));
      if (plot.hasPeaks) {
         *all += sentence(charset_ == Charset::utf8 ? "█ mean of a column, ░ highest rate within it"
                                                    : "# mean of a column, : highest rate within it");
      }
      *all += legendOf(group, marks);
   }

   String axis() const { return timeAxis(grid_, texts_.offset(), charset_, texts_); }

   static String padded(const String& text, std::size_t width) {
      return text + String(width - std::min(columnsIn(text), width), ' ');
   }
   static String trimmed(const String& line) { return line.substr(0, line.find_last_not_of(' ') + 1) + "\n"; }

   String figuresText(const Words& figures) const {
      String text;
      for (const String& figure : figures) {
         text.append(1 + figureWidth_ - figure.size(), ' ');
         text += figure;
      }
      return text + "\n";
   }

   // What the marks below a plot mean, and when exactly it was.
   String legendOf(const HistoryGroup& group, const HistoryMarks& marks) const {
      Words gaps;
      for (const TimeSpan& gap : marks.gaps) {
         gaps.push_back(texts_(gap.begin) + " to " + texts_(gap.end) + " (" + durationText(gap.seconds()) +
                        ")");
      }
      const bool isOfQueues = PastCounter::named(group.counters.front())->kind == PastTable::Kind::queues;
      String text = explained(isOfQueues ? "- no samples of queues: " : "- no samples: ", gaps) +
                    explained("! discontinuity (a counter wrapped, was upset or reset): ",
                              moments(marks.discontinuities)) +
                    explained("+ a new record, counting from 0: ", moments(marks.begins));
      if (group.past.isOfPorts &&
          std::ranges::find(group.counters, unreadCounter()) != group.counters.end()) {
         text +=
              explained(unreadCounter() + " is unknown, as the queues were not read: ", unreadTimes(group));
      }
      const double newest = group.past.samples.back().time;
      if (answer_.isWriterAlive && group.past.isGap(answer_.clock.now - newest)) {
         text += sentence(newestText(Activity::stale, newest));
      }
      return text;
   }

   static String unreadCounter() {
      using Silo::Interface::IntfHistory;
      return String(IntfHistory::fieldNames[IntfHistory::outQueueDrops]);
   }

   // From when to when there are samples of the group whose queues were not read.
   Words unreadTimes(const HistoryGroup& group) const {
      std::vector<TimeSpan> times;
      bool goesOn = false;
      for (const Silo::HistorySample* const sample : answer_.samplesOf(group)) {
         const bool isUnread = sample->has(Silo::SampleFlag::queuesUnread);
         if (isUnread && !goesOn) {
            times.push_back({sample->time, sample->time});
         } else if (isUnread) {
            times.back().end = sample->time;
         }
         goesOn = isUnread;
      }
      Words texts;
      std::ranges::transform(times, std::back_inserter(texts), [&](const TimeSpan& one) {
         return one.seconds() > 0 ? texts_(one.begin) + " to " + texts_(one.end) : texts_(one.begin);
      });
      return texts;
   }

   Words moments(const std::vector<double>& times) const {
      Words all;
      std::ranges::transform(times, std::back_inserter(all), texts_);
      return all;
   }

   String explained(const String& mark, const Words& times) const {
      constexpr std::size_t most = 4;
      if (times.empty()) {
         return "";
      }
      const Words shown(times.begin(),
                        times.begin() + static_cast<std::ptrdiff_t>(std::min(times.size(), most)));
      return sentence(mark + Kiln::joined(shown, ", ") +
                      (times.size() > most ? " and " + std::to_string(times.size() - most) + " more" : ""));
   }

   const HistoryAnswer& answer_;
   const TimeTexts texts_;
   const std::size_t width_;
   const Charset charset_;
   std::vector<std::vector<Line>> lines_; // by group
   std::size_t left_ = 0;                 // columns of the widest name with its unit
   std::size_t figureWidth_ = 0;
   String legends_; // of the interface whose lines are being added
   TimeGrid grid_;
};

} // namespace

String viewHistory(const Words& words, const Silo::Store& store, std::size_t width, Charset charset) {
   PastTables past(store);
   HistoryAnswer answer;
   answer.clock = past.ports().clock();
   answer.request = parseHistoryRequest(words, past, answer.clock);
   answer.isWriterAlive = past.ports().isWriterAlive();
   for (const String& intf : answer.request.intfs) {
      for (HistoryGroup& group : groupsOf(intf, answer.request.counters, &past)) {
         answer.groups.push_back(std::move(group));
      }
   }
   if (answer.groups.empty()) {
      throw std::runtime_error("no samples of " + Kiln::nameRanges(answer.request.intfs) + " yet");
   }
   answer.span = spanOf(answer.request, answer.clock, heldIn(answer.groups, &past));
   switch (answer.request.format) {
   case HistoryRequest::Format::json:
      return historyJson(answer);
   case HistoryRequest::Format::csv:
      return historyCsv(answer);
   case HistoryRequest::Format::plot:
      break;
   }
   String text = Picture(answer, width == 0 ? TerminalSize().width : width, charset).text();
   if (!past.ports().owner().empty()) {
      text += "Published by the agent of " + past.ports().owner() + ".\n";
   }
   return text;
}

} // namespace ZelCtl

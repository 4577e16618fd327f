// Keeps what was read for as long as the agent publishes nothing newer.
#include "apps/zelexporter/page/PageData.h"

#include "apps/zelctl/events/EventText.h"
#include "apps/zelctl/history/HistorySeries.h"
#include "apps/zelexporter/page/PageJson.h"

#include <functional>

namespace ZelExporter {

namespace {

using Kiln::JsonWriter;
using Kiln::String;
using Silo::Interface::IntfHistory;
using ZelCtl::HistorySeries;

constexpr std::size_t shownEvents = 200;
constexpr std::size_t keptDocuments = 64; // so that browsers which ask for ever more fill no memory
constexpr std::size_t plotColumns = 300;
constexpr double leastInterval = 0.5; // seconds between two readings
constexpr double lostInterval = 1;    // while there is nothing to read

} // namespace

PageData::PageData(const Silo::Store& store, const String& problem)
     : store_(store), reading_(store, problem) {}

void PageData::refresh(double now) {
   const bool isWriterAlive = reading_.isWriterAlive();
   if (now < due_ && isWriterAlive == wasWriterAlive_) {
      return;
   }
   reading_.read();
   wasWriterAlive_ = reading_.isWriterAlive();
   due_ = now + (reading_.pollingInterval() > 0 ? std::max(reading_.pollingInterval(), leastInterval)
                                                : lostInterval);
   documents_.clear();
}

template <class Make>
Document PageData::document(const String& key, Make make) {
   const double now = Silo::monotonicNow();
   refresh(now);
   auto found = documents_.find(key);
   if (found == documents_.end()) {
      const String text = make();
      if (text.empty()) {
         return {};
      }
      if (documents_.size() >= keptDocuments) {
         documents_.clear();
      }
      Document made;
      made.tag = std::to_string(std::hash<String>()(text));
      made.text = packed(text);
      found = documents_.emplace(key, std::move(made)).first;
   }
   Document answer = found->second;
   answer.untilNext = std::max(due_ - now, 0.);
   answer.age = std::max(now - reading_.time(), 0.);
   return answer;
}

Document PageData::ports() {
   return document("ports", [this] { return reading_.portsJson(); });
}

Document PageData::drops() {
   return document("drops", [this] { return reading_.dropsJson(); });
}

Document PageData::events() {
   return document("events", [this] { return eventsJson(); });
}

Document PageData::port(const String& intf) {
   return document("port " + intf, [&] { return reading_.portJson(intf); });
}

Document PageData::history(const String& intf, double seconds) {
   return document("history " + std::to_string(seconds) + " " + intf,
                   [&] { return reading_.portJson(intf).empty() ? "" : historyJson(intf, seconds); });
}

String PageData::eventsJson() {
   JsonWriter out(JsonWriter::Style::compact);
   out.begin("", '{');
   ZelCtl::RecordedEvents recorded;
   try {
      if (!events_) {
         events_.emplace(store_);
      }
      recorded = events_->read();
      out.null("problem");
   } catch (const std::exception& error) {
      out.value("problem", std::string_view(error.what()));
   }
   out.begin("notes", '[');
   for (const String& note : events_ ? recorded.notes() : std::vector<String>()) {
      out.value("", std::string_view(note));
   }
   out.end(']');
   out.begin("events", '[');
   std::size_t left = shownEvents;
   for (auto event = recorded.events.rbegin(); event != recorded.events.rend() && left > 0; ++event, --left) {
      out.newLine();
      out.begin("", '{');
      out.value("number", event->number);
      out.value("unix-ms", Vex::milliseconds(event->unixTime));
      out.value("last-unix-ms", Vex::milliseconds(event->lastUnixTime));
      out.value("count", event->count);
      out.value("kind", std::string_view(event->kind));
      out.value("where", std::string_view(event->where));
      out.value("place", std::string_view(placeText(*event)));
      out.value("text", std::string_view(happenedText(*event)));
      out.end('}');
   }
   out.end(']');
   out.end('}');
   return out.text();
}

String PageData::historyJson(const String& intf, double seconds) {
   JsonWriter out(JsonWriter::Style::compact);
   out.begin("", '{');
   out.value("interface", std::string_view(intf));
   ZelCtl::PastSamples past;
   ZelCtl::TableClock clock;
   try {
      if (!past_) {
         past_.emplace(store_, ZelCtl::PastTable::Kind::ports);
      }
      past = past_->samples(intf);
      clock = past_->clock();
      out.null("problem");
   } catch (const std::exception& error) {
      past_.reset();
      out.value("problem", std::string_view(error.what()));
      out.end('}');
      return out.text();
   }
   const ZelCtl::TimeSpan span{clock.now - seconds, clock.now};
   const double offset = clock.isOfHere ? clock.unixOffset : -clock.now;
   const auto grid = ZelCtl::TimeGrid::covering(span.begin, span.end, past.interval, plotColumns, offset);
   out.value("is-unix-time", clock.isOfHere);
   out.value("from-ms", Vex::milliseconds(span.begin + offset));
   out.value("to-ms", Vex::milliseconds(span.end + offset));
   out.value("begin-ms", Vex::milliseconds(grid.begin + offset));
   out.value("column-ms", Vex::milliseconds(grid.column));
   out.begin("series", '{');
   for (std::size_t field = 0; field < IntfHistory::fieldNames.size(); ++field) {
      const unsigned factor = field <= IntfHistory::outOctets ? 8 : 1;
      const HistorySeries series(past, field, span, HistorySeries::Values::rates, factor);
      const std::vector<ZelCtl::PlotColumn> columns = series.columns(grid);
      out.begin(IntfHistory::fieldNames[field], '{');
      for (const bool isPeak : {false, true}) {
         out.begin(isPeak ? "peaks" : "means", '[');
         for (const ZelCtl::PlotColumn& one : columns) {
            addRate(&out, "", one.value ? std::optional(isPeak ? one.peak : *one.value) : std::nullopt);
         }
         out.end(']');
      }
      out.end('}');
   }
   out.end('}');
   const auto marks = ZelCtl::HistoryMarks::of(past, span);
   out.begin("gaps-ms", '[');
   for (const ZelCtl::TimeSpan& gap : marks.gaps) {
      out.begin("", '[');
      addMilliseconds(&out, "", gap.begin + offset);
      addMilliseconds(&out, "", gap.end + offset);
      out.end(']');
   }
   out.end(']');
   for (const auto& [key, times] :
        {std::pair("discontinuities-ms", &marks.discontinuities), std::pair("begins-ms", &marks.begins)}) {
      out.begin(key, '[');
      for (const double time : *times) {
         addMilliseconds(&out, "", time + offset);
      }
      out.end(']');
   }
   out.end('}');
   return out.text();
}

} // namespace ZelExporter

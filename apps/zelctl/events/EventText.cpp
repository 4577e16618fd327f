// Says of an event what it has, and nothing of what it lacks.
#include "apps/zelctl/events/EventText.h"

#include "apps/zelctl/terminal/Utf8.h"
#include "apps/zelctl/views/TimeWords.h"
#include "kiln/Choices.h"
#include "kiln/EventLog.h"
#include "kiln/JsonWriter.h"
#include "vex/RecordText.h"

#include <algorithm>

namespace ZelCtl {

namespace {

using Kiln::String;

constexpr std::size_t gap = 2;

String repeated(const RecordedEvent& event, const TableClock& clock) {
   String text;
   if (event.count > 1) {
      text += "; " + std::to_string(event.count) + " times, last ";
      text += momentText(event.lastUnixTime, clock);
   }
   return text;
}

void addMilliseconds(Kiln::JsonWriter* out, const char* key, const std::optional<double>& seconds) {
   if (seconds) {
      out->value(key, Vex::milliseconds(*seconds));
   } else {
      out->null(key);
   }
}

void addEvent(Kiln::JsonWriter* out, const RecordedEvent& event) {
   out->begin("", '{');
   out->value("number", event.number);
   addMilliseconds(out, "time-ms", event.time);
   addMilliseconds(out, "unix-time-ms", event.unixTime);
   out->value("kind", std::string_view(event.kind));
   out->value("where", std::string_view(event.where));
   out->value("what", std::string_view(event.what));
   if (event.hasValues) {
      out->value("before", event.before);
      out->value("after", event.after);
   } else {
      out->null("before");
      out->null("after");
   }
   out->value("others", event.others);
   out->value("text", std::string_view(event.text));
   out->value("count", event.count);
   addMilliseconds(out, "last-time-ms", event.lastTime);
   addMilliseconds(out, "last-unix-time-ms", event.lastUnixTime);
   out->end('}');
}

} // namespace

String placeText(const RecordedEvent& event) {
   String text = event.where.empty() ? "-" : event.where;
   if (event.isCrowd()) {
      text += " to " + event.what;
   }
   return text;
}

String happenedText(const RecordedEvent& event) {
   if (event.isCrowd()) {
      String text = Kiln::counted(event.others + 1, "interface");
      text += event.text.empty() ? "" : ": " + event.text;
      return text;
   }
   if (event.kind == Kiln::EventKind::clear) {
      return event.text + ", by " + event.what;
   }
   String text = event.what;
   const auto add = [&](const char* separator, const String& more) {
      text += text.empty() || more.empty() ? "" : separator;
      text += more;
   };
   if (event.hasValues) {
      String values = std::to_string(event.before);
      values += " -> " + std::to_string(event.after);
      add(": ", values);
   }
   if (event.others != 0) {
      String others = "and " + std::to_string(event.others) + " more";
      others += !event.hasValues ? "" : event.others == 1 ? " counter" : " counters";
      add(" ", others);
   }
   // A message begins with its id.
   if (event.text.starts_with(event.what)) {
      text = event.text;
   } else {
      add(event.hasValues ? ", " : ": ", event.text);
   }
   return text;
}

void EventLines::columnsFor(const std::vector<const RecordedEvent*>& events, const TableClock& clock) {
   for (const RecordedEvent* event : events) {
      time_ = std::max(time_, momentText(event->unixTime, clock).size());
      kind_ = std::max(kind_, event->kind.size());
      place_ = std::max(place_, placeText(*event).size());
   }
   constexpr std::size_t most = 14; // so that a crowd among ports does not push everything to the right edge
   place_ = std::min(place_, most);
}

String EventLines::lineOf(const RecordedEvent& event, const TableClock& clock) const {
   const auto filled = [](String text, std::size_t columns) {
      text.resize(std::max(text.size(), columns), ' ');
      return text + String(gap, ' ');
   };
   const String time = momentText(event.unixTime, clock);
   const String head = String(time_ - std::min(time_, time.size()), ' ') + time + String(gap, ' ') +
                       filled(event.kind, kind_) + filled(placeText(event), place_);
   const String rest = happenedText(event) + repeated(event, clock);
   const std::size_t begin = time_ + gap + kind_ + gap;
   constexpr std::size_t least = 40; // columns, in which values and words can still be read
   String line = head;
   if (width_ == 0 || head.size() + columnsIn(rest) <= width_) {
      line += rest;
   } else {
      // Below the place, there is more room than beside it.
      const bool isBeside = width_ >= head.size() + least;
      const std::size_t indent = isBeside ? head.size() : width_ >= begin + least ? begin : gap;
      bool isFirst = isBeside;
      for (const String& part : wrapped(rest, width_ > indent ? width_ - indent : 1)) {
         if (!isFirst) {
            line.resize(line.find_last_not_of(' ') + 1);
            line += '\n';
            line.append(indent, ' ');
         }
         line += part;
         isFirst = false;
      }
   }
   line.resize(line.find_last_not_of(' ') + 1);
   return line + "\n";
}

String eventJsonLine(const RecordedEvent& event) {
   Kiln::JsonWriter out(Kiln::JsonWriter::Style::compact);
   addEvent(&out, event);
   return out.text();
}

String eventsJson(const RecordedEvents& recorded, const std::vector<const RecordedEvent*>& events,
                  const std::vector<String>& notes) {
   Kiln::JsonWriter out;
   out.begin("", '{');
   out.value("table", std::string_view(Silo::Interface::TableName::events));
   out.value("writer-alive", recorded.isWriterAlive);
   out.value("unreadable", static_cast<U64>(recorded.unreadable));
   out.begin("events", '[');
   for (const RecordedEvent* event : events) {
      addEvent(&out, *event);
   }
   out.end(']');
   out.begin("notes", '[');
   for (const String& note : notes) {
      out.value("", std::string_view(note));
   }
   out.end(']');
   out.end('}');
   return out.text();
}

} // namespace ZelCtl

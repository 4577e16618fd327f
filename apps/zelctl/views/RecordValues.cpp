// Values of records that are computed, and notes.
#include "apps/zelctl/views/RecordValues.h"

#include "kiln/Choices.h"

namespace ZelCtl {

using Kiln::String;
using Vex::NamedCounter;

U64 countOf(const NamedCounter& counter, const RecordRequest& request) {
   return request.has(raw) ? counter.reading.value_or(counter.total) : counter.total;
}

// Of the line's capacity, by RFC 2819: each packet also takes a preamble and a gap of 20 octets.
std::optional<U64> usePerMille(const PublishedRow& row, std::string_view direction) {
   constexpr double overhead = 20; // octets
   const NamedCounter* const octets = row.counter(String(direction) + "-octets");
   const NamedCounter* const packets = row.counter(String(direction) + "-pkts");
   const U64 speed = row.text.speed.value_or(0);
   if (speed == 0 || octets == nullptr || packets == nullptr || !octets->rate || !packets->rate) {
      return std::nullopt;
   }
   const double bits = 8 * (*octets->rate + overhead * *packets->rate);
   return Vex::wholeRate(1000 * bits / static_cast<double>(speed));
}

std::optional<U64> suspectsOf(const PublishedRow& row) {
   return row.span ? row.span->suspects : row.text.suspects.value_or(0);
}

std::optional<double> secondsSince(const PublishedRow& row, const PublishedTable& table, double time) {
   const double seconds = table.now - time;
   return time != 0 && row.age && seconds >= 0 ? std::optional(seconds) : std::nullopt;
}

// The name of a class may have a point in it, that of a value has none.
std::vector<String> placesOf(const PublishedRow& row, const Places& places) {
   std::vector<String> names;
   for (const NamedCounter& one : row.text.counters) {
      const std::size_t begin = places.prefix.size();
      const String name = one.name.substr(begin, one.name.rfind('.') - begin);
      if (names.empty() || names.back() != name) {
         names.push_back(name);
      }
   }
   return names;
}

String prefixOf(const Places& places, const String& place) {
   return place.empty() ? String() : String(places.prefix) + place + ".";
}

// Queue drops stand in a port's line, and were read at another time.
std::vector<String> notesOf(const RecordRequest& request, const PublishedTable& table,
                            const std::vector<const PublishedRow*>& rows) {
   std::vector<String> notes = table.notes();
   std::vector<String> names;
   double oldest = 0;
   double mostBehind = 0;
   for (const PublishedRow* row : rows) {
      if (row->queuesBehind > staleAfter * table.pollingInterval) {
         names.push_back(row->name);
         oldest = std::max(oldest, row->queuesAge.value_or(0));
         mostBehind = std::max(mostBehind, row->queuesBehind);
      }
   }
   if (!names.empty() && (request.has(errors) || !request.names.empty())) {
      notes.push_back("Queue drops of " +
                      (names.size() == 1 ? names.front() : Kiln::counted(names.size(), "port")) + ": as of " +
                      (oldest > 0 ? Kiln::durationText(oldest) + " ago"
                                  : Kiln::durationText(mostBehind) + " before the other counts"));
   }
   return notes;
}

} // namespace ZelCtl

// Adds counters up.
#include "apps/zelctl/views/Place.h"

#include "vex/PublishedRecords.h"

#include <tuple>

namespace ZelCtl {

using Kiln::String;
using Vex::NamedCounter;

// Adds the counters up that the record has. Their rate is known if all theirs are.
void Place::addUp(const PublishedRow& row, std::initializer_list<String> names, Value rate,
                  std::optional<Value> total, double factor) {
   std::optional<double> sum;
   bool isKnown = true;
   bool isWhole = true; // of the total
   for (const String& name : names) {
      const NamedCounter* const counter = row.counter(name);
      // What the record counts, but nobody knows over the span, is part of the sum as well.
      const bool isLost =
           counter == nullptr &&
           std::ranges::find(row.text.counters, name, &NamedCounter::name) != row.text.counters.end();
      if (isLost) {
         isKnown = isWhole = false;
         continue;
      }
      if (counter == nullptr || !counter->isRead) {
         continue;
      }
      isKnown = isKnown && counter->rate;
      sum = sum.value_or(0) + factor * counter->rate.value_or(0);
      if (total) {
         totals[*total] = totals[*total].value_or(0) + counter->total;
      }
   }
   rates[rate] = isKnown ? sum : std::nullopt;
   least[rate] = sum.value_or(0);
   if (total && !isWhole) {
      totals[*total].reset();
   }
}

Place Place::ofPort(const PublishedTable& table, const PublishedRow& row) {
   constexpr double overhead = 160; // bits that each packet also takes on the line: RFC 2819
   Place port{row.name, "", table.activity(row)};
   port.addUp(row, {"in-octets"}, inBits, {}, 8);
   port.addUp(row, {"out-octets"}, outBits, {}, 8);
   const double speed = static_cast<double>(row.text.speed.value_or(0));
   for (const auto& [use, bits, name] :
        {std::tuple{inUse, inBits, "in-pkts"}, std::tuple{outUse, outBits, "out-pkts"}}) {
      port.addUp(row, {name}, packets);
      const bool isKnown = speed > 0 && port.rates[bits] && port.rates[packets];
      port.rates[use] =
           isKnown ? std::optional(1000 * (port.value(bits) + overhead * port.value(packets)) / speed)
                   : std::nullopt;
   }
   port.addUp(row, {"in-pkts", "out-pkts"}, packets);
   port.addUp(row, {"in-discards", "out-discards", "out-queue-drops"}, drops, dropTotal);
   port.addUp(row, {"in-errors", "out-errors"}, errors, errorTotal);
   return port;
}

std::vector<Place> Place::ofQueues(const PublishedTable& table, const PublishedRow& row) {
   std::vector<Place> queues;
   for (std::size_t queue = 0; queue < Silo::Interface::IntfQueueCounters::queueCount; ++queue) {
      const String number = std::to_string(queue);
      const String prefix = "queue." + number + ".";
      if (row.counter(prefix + "packets") != nullptr) {
         Place place{row.name, number, table.activity(row, prefix)};
         place.addUp(row, {prefix + "bytes"}, outBits, {}, 8);
         place.addUp(row, {prefix + "packets"}, packets);
         place.addUp(row, {prefix + "drops"}, drops, dropTotal);
         queues.push_back(std::move(place));
      }
   }
   return queues;
}

} // namespace ZelCtl

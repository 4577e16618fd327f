// What happens at a port or a queue, in the few numbers by which places are ranked and coloured.
#pragma once

#include "apps/zelctl/views/PublishedRows.h"

#include <array>

namespace ZelCtl {

struct Place {
   // Use is in thousandths of the line. Drops are those of the MAC and of the queues.
   enum Value : U8 {
      inUse,
      outUse,
      inBits,
      outBits,
      packets,
      drops,
      dropTotal,
      errors,
      errorTotal,
      valueCount
   };

   Kiln::String intf;
   Kiln::String queue; // empty for a port
   Activity activity = Activity::unrated;
   std::array<std::optional<double>, valueCount> rates{}; // of a sum, known if those of all its counters are
   std::array<std::optional<U64>, valueCount> totals{};
   std::array<double, valueCount> least{}; // of rates: what is known of them

   // What is unknown ranks by the part of it that is known.
   double value(Value which) const {
      return rates[which].value_or(totals[which] ? static_cast<double>(*totals[which]) : least[which]);
   }

   // Of a row of ports, and of each queue that a row of queues has. The table is the row's.
   static Place ofPort(const PublishedTable& table, const PublishedRow& row);
   static std::vector<Place> ofQueues(const PublishedTable& table, const PublishedRow& row);

 private:
   void addUp(const PublishedRow& row, std::initializer_list<Kiln::String> names, Value rate,
              std::optional<Value> total = std::nullopt, double factor = 1);
};

} // namespace ZelCtl

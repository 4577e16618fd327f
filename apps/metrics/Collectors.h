// Which parts of what is published a scrape has.
#pragma once

#include "kiln/Types.h"

#include <array>
#include <string_view>

namespace ZelMetrics {

enum class Collector : U8 {
   interfaces,
   queues,
   vlans,
   subinterfaces,
   nat,
   drops,
   classes,
   pipeline,
   mauDrops,
   trafficManager,
   health,
   count
};
inline constexpr std::array<std::string_view, static_cast<std::size_t>(Collector::count)> collectorNames{
     "interfaces", "queues",   "vlans",     "subinterfaces",   "nat",   "drops",
     "classes",    "pipeline", "mau-drops", "traffic-manager", "health"};

// A set of them; all at first.
class Collectors {
 public:
   bool has(Collector one) const { return ((bits_ >> static_cast<unsigned>(one)) & 1) != 0; }
   // The set becomes those of the comma-separated list, or loses them. Throws std::invalid_argument for an unknown or
   // repeated name or an empty list, listing the names that there are.
   void are(std::string_view list);
   void remove(std::string_view list);

 private:
   static constexpr U32 all = (U32{1} << static_cast<unsigned>(Collector::count)) - 1;
   U32 bits_ = all;
};

} // namespace ZelMetrics

// Reads lists of collectors.
#include "apps/metrics/Collectors.h"

#include <algorithm>
#include <stdexcept>
#include <string>

namespace ZelMetrics {

namespace {

std::string expected() {
   std::string names;
   for (const std::string_view name : collectorNames) {
      names += names.empty() ? "" : ", ";
      names += name;
   }
   return "expected some of " + names + ", with commas between them";
}

U32 bitsOf(std::string_view list) {
   U32 bits = 0;
   while (true) {
      const std::string_view name = list.substr(0, list.find(','));
      const auto found = std::ranges::find(collectorNames, name);
      if (found == collectorNames.end()) {
         throw std::invalid_argument("unknown collector '" + std::string(name) + "': " + expected());
      }
      const U32 bit = U32{1} << (found - collectorNames.begin());
      if ((bits & bit) != 0) {
         throw std::invalid_argument("collector '" + std::string(name) + "' twice: " + expected());
      }
      bits |= bit;
      if (name.size() == list.size()) {
         return bits;
      }
      list.remove_prefix(name.size() + 1);
   }
}

} // namespace

void Collectors::are(std::string_view list) {
   bits_ = bitsOf(list);
}

void Collectors::remove(std::string_view list) {
   bits_ &= ~bitsOf(list);
}

} // namespace ZelMetrics

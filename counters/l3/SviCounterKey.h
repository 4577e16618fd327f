// Tells apart the hardware entries of one VLAN.
#pragma once

#include "kiln/Types.h"

#include <compare>
#include <functional>
#include <iosfwd>

namespace ZelCounter {

class SviCounterKey {
 public:
   constexpr SviCounterKey() noexcept = default;
   constexpr SviCounterKey(U8 decapType, bool snat) noexcept : decapType_(decapType), snat_(snat) {}
   // From the text form. Throws std::invalid_argument, saying what is expected, for any other text.
   explicit SviCounterKey(const Kiln::String& text);

   // 0: ordinary traffic; 1: traffic that was decapsulated on this VLAN.
   constexpr U8 decapType() const noexcept { return decapType_; }
   // Traffic that hit a source-NAT rule.
   constexpr bool snat() const noexcept { return snat_; }

   // Value('ZelCounter::SviCounterKey', ** {'decapType': 0, 'snat': False})
   Kiln::String text() const;

   auto operator<=>(const SviCounterKey&) const noexcept = default;

 private:
   U8 decapType_ = 0;
   bool snat_ = false;
};
static_assert(sizeof(SviCounterKey) == 2);

std::ostream& operator<<(std::ostream& out, const SviCounterKey& key);

} // namespace ZelCounter

template <>
struct std::hash<ZelCounter::SviCounterKey> {
   std::size_t operator()(const ZelCounter::SviCounterKey& key) const noexcept {
      return static_cast<std::size_t>(key.decapType()) << 1 | static_cast<std::size_t>(key.snat());
   }
};

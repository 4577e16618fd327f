// A name as a stem and a number: "Ethernet3.100" is "Ethernet3." and 100.
#pragma once

#include "kiln/Types.h"

#include <string_view>

namespace Kiln {

struct Numbered {
   explicit Numbered(std::string_view text) {
      const std::size_t digits = text.find_last_not_of("0123456789") + 1;
      stem = text.substr(0, digits);
      // At most nine digits, so that stoul cannot throw.
      isNumbered = text.size() > digits && text.size() - digits < 10;
      number = isNumbered ? std::stoul(String(text.substr(digits))) : 0;
   }
   bool isFollowedBy(const Numbered& next) const {
      return isNumbered && next.isNumbered && stem == next.stem && number + 1 == next.number;
   }

   String stem;
   bool isNumbered = false;
   unsigned long number = 0;
};

} // namespace Kiln

// Octets written as hexadecimal text, for frames and files that a test builds itself.
#pragma once

#include "kiln/Types.h"

#include <string>
#include <string_view>
#include <vector>

namespace SoftChip {

// Converts hexadecimal digits into octets. Blanks between octets are ignored.
inline std::vector<U8> bytes(std::string_view hex) {
   std::vector<U8> octets;
   for (std::size_t i = 0; i < hex.size();) {
      if (hex[i] == ' ') {
         ++i;
         continue;
      }
      octets.push_back(static_cast<U8>(std::stoul(std::string(hex.substr(i, 2)), nullptr, 16)));
      i += 2;
   }
   return octets;
}

} // namespace SoftChip

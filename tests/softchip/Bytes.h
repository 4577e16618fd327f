// Octets written down as hexadecimal text, for frames and files that a test builds itself.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace SoftChip {

/** The octets of hexadecimal digits; blanks between octets are for the reader's eye. */
inline std::vector<uint8_t> bytes(std::string_view hex) {
   std::vector<uint8_t> octets;
   for (size_t i = 0; i < hex.size();) {
      if (hex[i] == ' ') {
         ++i;
         continue;
      }
      octets.push_back(static_cast<uint8_t>(std::stoul(std::string(hex.substr(i, 2)), nullptr, 16)));
      i += 2;
   }
   return octets;
}

} // namespace SoftChip

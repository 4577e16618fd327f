// The key of a record: checks and hash.
#include "silo/Key.h"

#include <algorithm>
#include <cstring>
#include <stdexcept>

namespace Silo {

namespace {

bool isPrintable(char c) {
   return c >= 0x20 && c <= 0x7e;
}

} // namespace

Key::Key(std::string_view text) {
   if (text.empty() || text.size() > maxLength || !std::all_of(text.begin(), text.end(), isPrintable)) {
      std::string shown;
      for (char c : text.substr(0, maxLength)) {
         shown += isPrintable(c) ? c : '?';
      }
      throw std::invalid_argument("\"" + shown + "\" (" + std::to_string(text.size()) +
                                  " bytes) is no record key: expected 1 to " + std::to_string(maxLength) +
                                  " printable ASCII characters");
   }
   std::memcpy(words_.data(), text.data(), text.size());
   hash_ = hashOf(words_);
}

std::string_view Key::view() const {
   const char* text = reinterpret_cast<const char*>(words_.data());
   return {text, strnlen(text, maxLength)};
}

bool Key::isValid() const {
   std::string_view text = view();
   const char* bytes = text.data();
   return !text.empty() && std::all_of(text.begin(), text.end(), isPrintable) &&
          std::all_of(bytes + text.size(), bytes + bytesPerBlock, [](char c) { return c == 0; });
}

std::uint64_t Key::hashOf(const Block& words) {
   Checksum checksum(0, 0);
   checksum.add(words);
   // One more round, because a hash table uses the low bits and a product's low bits know only low bits.
   std::uint64_t sum = checksum.value();
   return (sum ^ (sum >> 32)) * 0xd6e8feb86659fd93;
}

} // namespace Silo

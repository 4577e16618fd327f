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
         // The text ends up in logs and on terminals, where control characters would act.
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
   // Keys are compared word by word, so what follows the text has to be zero.
   return !text.empty() && std::all_of(text.begin(), text.end(), isPrintable) &&
          std::all_of(bytes + text.size(), bytes + sizeof words_, [](char c) { return c == 0; });
}

std::uint64_t Key::hashOf(const Words& words) {
   std::uint64_t hash = 0;
   for (std::uint64_t word : words) {
      hash = (hash ^ word) * 0x9e3779b97f4a7c15;
      hash ^= hash >> 32;
   }
   return hash;
}

} // namespace Silo

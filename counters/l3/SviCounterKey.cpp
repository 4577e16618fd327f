// The text form of a key, both ways.
#include "counters/l3/SviCounterKey.h"

#include <charconv>
#include <optional>
#include <ostream>
#include <stdexcept>
#include <string_view>

namespace ZelCounter {

namespace {

constexpr std::string_view opening = "Value('ZelCounter::SviCounterKey', ** {";
constexpr std::string_view closing = "})";

// Takes the text off the front, or answers false.
bool take(std::string_view& rest, std::string_view text) {
   if (!rest.starts_with(text)) {
      return false;
   }
   rest.remove_prefix(text.size());
   return true;
}

std::optional<U8> takeU8(std::string_view& rest) {
   U8 value = 0;
   const auto [end, error] = std::from_chars(rest.data(), rest.data() + rest.size(), value);
   if (error != std::errc()) {
      return std::nullopt;
   }
   rest.remove_prefix(static_cast<std::size_t>(end - rest.data()));
   return value;
}

std::optional<bool> takeBool(std::string_view& rest) {
   return take(rest, "True")    ? std::optional(true)
          : take(rest, "False") ? std::optional(false)
                                : std::nullopt;
}

// Both attributes by name, each once, in either order.
std::optional<SviCounterKey> parsed(std::string_view rest) {
   std::optional<U8> decapType;
   std::optional<bool> snat;
   if (!take(rest, opening)) {
      return std::nullopt;
   }
   for (int i = 0; i < 2; ++i) {
      if (i > 0 && !take(rest, ", ")) {
         return std::nullopt;
      }
      if (!decapType && take(rest, "'decapType': ")) {
         decapType = takeU8(rest);
      } else if (!snat && take(rest, "'snat': ")) {
         snat = takeBool(rest);
      }
   }
   if (!decapType || !snat || rest != closing) {
      return std::nullopt;
   }
   return SviCounterKey(*decapType, *snat);
}

} // namespace

SviCounterKey::SviCounterKey(const Kiln::String& text) {
   const auto key = parsed(text);
   if (!key) {
      throw std::invalid_argument("'" + text + "' is not an SviCounterKey: expected " +
                                  Kiln::String(opening) + "'decapType': 0 to 255, 'snat': True or False" +
                                  Kiln::String(closing));
   }
   *this = *key;
}

Kiln::String SviCounterKey::text() const {
   return Kiln::String(opening) + "'decapType': " + std::to_string(decapType_) +
          ", 'snat': " + (snat_ ? "True" : "False") + Kiln::String(closing);
}

std::ostream& operator<<(std::ostream& out, const SviCounterKey& key) {
   return out << key.text();
}

} // namespace ZelCounter

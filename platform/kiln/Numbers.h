// Numbers as people type them. The whole text has to be the number: no blanks, and no sign before an unsigned one.
#pragma once

#include "kiln/Types.h"

#include <charconv>
#include <cmath>
#include <optional>
#include <string_view>

namespace Kiln {

// Decimal. None if the text is not a number, or one outside T or the bounds.
template <class T>
std::optional<T> parseNumber(std::string_view text, T min = std::numeric_limits<T>::min(),
                             T max = std::numeric_limits<T>::max(), int base = 10) {
   T value{};
   const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value, base);
   if (error != std::errc() || end != text.data() + text.size() || value < min || value > max) {
      return std::nullopt;
   }
   return value;
}

// A counter's value: decimal, or hexadecimal with 0x before it.
inline std::optional<U64> parseValue(std::string_view text) {
   constexpr U64 max = std::numeric_limits<U64>::max();
   const bool isHex = text.starts_with("0x");
   return isHex ? parseNumber<U64>(text.substr(2), 0, max, 16) : parseNumber<U64>(text);
}

// A number from 0 up to `max`, as 2 or 0.25.
inline std::optional<double> parseDecimal(std::string_view text, double max) {
   double value = 0.0;
   const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
   // Written as !(<=), so that NaN is refused too.
   if (error != std::errc() || end != text.data() + text.size() || std::signbit(value) || !(value <= max)) {
      return std::nullopt;
   }
   return value;
}

} // namespace Kiln

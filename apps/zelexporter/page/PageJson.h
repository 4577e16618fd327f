// Numbers as they stand in the page's documents: counts are texts, since a browser's numbers hold 53 bits; rates are
// thousandths per second, so that what happens every few seconds is not 0; what is not known is null.
#pragma once

#include "kiln/JsonWriter.h"
#include "vex/RecordText.h"

#include <cmath>

namespace ZelExporter {

inline void addRate(Kiln::JsonWriter* out, std::string_view key, const std::optional<double>& rate) {
   if (rate) {
      out->value(key, static_cast<S64>(std::llround(*rate * 1000)));
   } else {
      out->null(key);
   }
}

inline void addCount(Kiln::JsonWriter* out, std::string_view key, const std::optional<U64>& count) {
   if (count) {
      out->value(key, std::string_view(std::to_string(*count)));
   } else {
      out->null(key);
   }
}

inline void addMilliseconds(Kiln::JsonWriter* out, std::string_view key,
                            const std::optional<double>& seconds) {
   if (seconds) {
      out->value(key, Vex::milliseconds(*seconds));
   } else {
      out->null(key);
   }
}

} // namespace ZelExporter

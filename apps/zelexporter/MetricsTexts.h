// Texts of metrics, each shared by all who ask for it at about the same time.
#pragma once

#include "apps/metrics/Exposition.h"
#include "apps/zelexporter/PackedText.h"

#include <array>
#include <chrono>

namespace ZelExporter {

class MetricsTexts {
 public:
   MetricsTexts(const Silo::Store& store, const ZelMetrics::Collectors& collectors)
        : exposition_(store, collectors) {}

   // A new text, or one that is younger than a few times what making it took, so that however many ask, only a part of
   // one processor works for them.
   std::shared_ptr<const PackedText> text(ZelMetrics::Format format);

 private:
   using Clock = std::chrono::steady_clock;
   struct Made {
      std::shared_ptr<const PackedText> text;
      Clock::time_point sharedUntil{};
   };

   ZelMetrics::Exposition exposition_;
   std::array<Made, 2> made_{}; // by format
};

} // namespace ZelExporter

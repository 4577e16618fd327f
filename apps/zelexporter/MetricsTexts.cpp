// Makes texts when they are asked for.
#include "apps/zelexporter/MetricsTexts.h"

#include <algorithm>

namespace ZelExporter {

namespace {

constexpr int sharedFor = 4; // times what a text took
constexpr std::chrono::seconds longestShared{1};

} // namespace

std::shared_ptr<const PackedText> MetricsTexts::text(ZelMetrics::Format format) {
   Made& made = made_[static_cast<std::size_t>(format)];
   const auto begin = Clock::now();
   if (!made.text || begin >= made.sharedUntil) {
      exposition_.scrape(format, &scratch_);
      made.text = std::make_shared<const PackedText>(scratch_);
      const auto end = Clock::now();
      made.sharedUntil = end + std::min<Clock::duration>((end - begin) * sharedFor, longestShared);
   }
   return made.text;
}

} // namespace ZelExporter

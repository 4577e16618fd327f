// Makes texts when they are asked for.
#include "apps/zelexporter/MetricsTexts.h"

#include <algorithm>
#include <ctime>

namespace ZelExporter {

namespace {

constexpr int sharedFor = 4; // times what a text took
constexpr std::chrono::seconds longestShared{1};

// That this thread has used; so a machine that is busy with others makes no text older.
std::chrono::nanoseconds processorTime() {
   timespec time{};
   clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
   return std::chrono::seconds(time.tv_sec) + std::chrono::nanoseconds(time.tv_nsec);
}

} // namespace

std::shared_ptr<const PackedText> MetricsTexts::text(ZelMetrics::Format format) {
   Made& made = made_[static_cast<std::size_t>(format)];
   if (!made.text || Clock::now() >= made.sharedUntil) {
      const auto begin = processorTime();
      Packer packer;
      exposition_.scrape(format, [&packer](std::string_view piece) { packer.add(piece); });
      made.text = packer.text();
      made.sharedUntil =
           Clock::now() + std::min<Clock::duration>((processorTime() - begin) * sharedFor, longestShared);
   }
   return made.text;
}

} // namespace ZelExporter

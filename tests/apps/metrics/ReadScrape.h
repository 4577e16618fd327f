// A strict reader of both formats of metrics.
#pragma once

#include "apps/metrics/Exposition.h"

#include <map>

namespace ZelTest {

using Labels = std::map<Kiln::String, Kiln::String>;

struct ReadFamily {
   Kiln::String type;
   Kiln::String unit;
   Kiln::String help;
};

struct ReadScrape {
   std::map<Kiln::String, ReadFamily> families;
   // Values as they are written, by the sample's name and labels.
   std::map<std::pair<Kiln::String, Labels>, Kiln::String> samples;

   // Empty if there is no such sample.
   Kiln::String value(const Kiln::String& name, const Labels& labels = {}) const {
      const auto found = samples.find({name, labels});
      return found == samples.end() ? "" : found->second;
   }
   std::size_t count(const Kiln::String& name) const {
      return static_cast<std::size_t>(
           std::ranges::count_if(samples, [&](const auto& one) { return one.first.first == name; }));
   }
};

// Throws std::runtime_error with the line for whatever the format does not allow, or what we never write.
ReadScrape readScrape(ZelMetrics::Format format, const Kiln::String& text);

} // namespace ZelTest

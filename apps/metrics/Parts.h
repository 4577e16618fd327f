// The parts of a scrape.
#pragma once

#include "apps/metrics/Part.h"

namespace ZelMetrics {

// In the order of the families, the interfaces' first.
std::vector<std::unique_ptr<Part>> makeParts();

} // namespace ZelMetrics

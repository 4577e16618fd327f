// `zelctl metrics`: what is published, as a collector reads it.
#pragma once

#include "kiln/Types.h"
#include "silo/Store.h"

#include <vector>

namespace ZelCtl {

inline constexpr const char* metricsCommand = "metrics";

// In Prometheus' text format, or OpenMetrics where that is asked for; also if no agent runs. Throws std::runtime_error for
// wrong words, saying what was expected.
Kiln::String viewMetrics(const std::vector<Kiln::String>& words, const Silo::Store& store);

// What may follow the words, the last of which begins with `begun`.
std::vector<Kiln::String> metricsCandidates(const std::vector<Kiln::String>& words,
                                            const Kiln::String& begun);

} // namespace ZelCtl

// What a client says that it takes.
#pragma once

#include "apps/metrics/Exposition.h"

#include <string_view>

namespace ZelExporter {

// The format for an Accept header: OpenMetrics 1.0 only where it is named, and preferred or as good as plain text. Who
// takes neither gets text, too: a wrong header is no reason to lose samples.
ZelMetrics::Format formatFor(std::string_view accept);

// Whether an Accept-Encoding header takes gzip.
bool takesGzip(std::string_view acceptEncoding);

} // namespace ZelExporter

// Reads the JSON document with which the agent answers a show with `json`.
#pragma once

#include "apps/zelctl/views/ShownTable.h"

#include <string_view>

namespace ZelCtl {

// {"chips": [{"chip": NAME, "tables": [{"title": TEXT, "counters": [HEADING...], "rows": [{HEADING: VALUE...}...],
// "notes": [TEXT...]}...], "notes": [TEXT...]} or {"chip": NAME, "error": TEXT}]}. A table may have "age-ms" and
// "status": how long before the answer it was read, or null, and what is wrong with that, or null. While something is,
// its rows have no sample time. "cleared-age-ms" and "cleared-by", or null, say when it was cleared last. A row's
// "not-supported" lists its counters that there are none of, and null is never read otherwise; a counter "NAME-ms" is
// an age, and becomes a text. A title that doesn't end in its chip's name gets it as a prefix; a chip's error or notes
// become a table without rows. Columns come in the order in which the rows first have them. The document was asked for
// and had come at these times of the monotonic clock. Throws std::runtime_error if the text is anything else.
std::vector<ShownTable> readCountersDocument(std::string_view text, double asked, double answered);

} // namespace ZelCtl

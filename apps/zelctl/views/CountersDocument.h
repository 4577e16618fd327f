// Reads the JSON document with which the agent answers a show with `json`.
#pragma once

#include "apps/zelctl/views/ShownTable.h"

#include <string_view>

namespace ZelCtl {

// {"chips": [{"chip": NAME, "tables": [{"title": TEXT, "counters": [HEADING...], "rows": [{HEADING:
// VALUE...}...], "notes": [TEXT...]}...]} or {"chip": NAME, "error": TEXT}]}. A title that doesn't end in its
// chip's name gets it as a prefix; a chip's error becomes a table with a title only. Columns come in the order in
// which the rows first have them. Throws std::runtime_error if the text is anything else.
std::vector<ShownTable> readCountersDocument(std::string_view text);

} // namespace ZelCtl

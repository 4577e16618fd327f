// The document with which the agent answers a show with `json`, as tables.
#pragma once

#include "apps/zelctl/views/ShownTable.h"

#include <string_view>

namespace ZelCtl {

// {"chips": [{"chip": NAME, "tables": [{"title": TEXT, "counters": [HEADING...], "rows": [{HEADING:
// VALUE...}...], "notes": [TEXT...]}...]} or {"chip": NAME, "error": TEXT}]}. A title that doesn't end in its
// chip's name gets it before it; a chip's error is a table of a title only. Columns come in the order in
// which rows first have them. Throws std::runtime_error when the text is something else.
std::vector<ShownTable> readCountersDocument(std::string_view text);

} // namespace ZelCtl

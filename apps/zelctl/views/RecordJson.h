// Records as JSON for programs.
#pragma once

#include "apps/zelctl/views/RecordRequest.h"

namespace ZelCtl {

// The rows that the request asks for, as a document.
Kiln::String recordsJson(const RecordRequest& request, const PublishedTable& table);

} // namespace ZelCtl

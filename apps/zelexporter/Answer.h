// What is sent for one request.
#pragma once

#include "apps/zelexporter/PackedText.h"

namespace ZelExporter {

struct Answer {
   Kiln::String bytes;                     // first; mostly all of it
   std::shared_ptr<const PackedText> text; // then, if any, this
   bool isUnpacked = false;                // which is sent as it was before it was packed
   bool closes = false;                    // the connection ends with it
};

} // namespace ZelExporter

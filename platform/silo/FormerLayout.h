// The layout that a table's records had before their last change, for writers that find such a table.
#pragma once

#include "silo/Record.h"

#include <cstddef>
#include <cstring>
#include <functional>
#include <vector>

namespace Silo {

struct FormerLayout {
   RecordLayout layout;
   std::vector<std::byte> defaultEntry;
   // Makes one of today's records out of a former one. Empty: there is no former layout.
   std::function<void(const void* former, void* record)> upgrade;
};

template <RecordType Record, RecordType Former>
FormerLayout formerLayout(Record (*upgraded)(const Former&)) {
   const Former defaultEntry{};
   auto* bytes = reinterpret_cast<const std::byte*>(&defaultEntry);
   return {layoutOf<Former>(), std::vector<std::byte>(bytes, bytes + sizeof defaultEntry),
           [upgraded](const void* from, void* to) {
              Former former;
              std::memcpy(&former, from, sizeof former);
              const Record record = upgraded(former);
              std::memcpy(to, &record, sizeof record);
           }};
}

} // namespace Silo

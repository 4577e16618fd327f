// What an interface's name says of it.
#include "zel/Pelt.h"

#include <algorithm>
#include <ostream>

namespace Pelt {

bool InternalIntfId::isInternalIntfId(const IntfId& intf) noexcept {
   constexpr std::string_view prefix = "Internal";
   const std::string_view text = intf.text();
   return text.size() > prefix.size() && text.starts_with(prefix) &&
          std::all_of(text.begin() + prefix.size(), text.end(), [](char c) { return c >= '0' && c <= '9'; });
}

std::ostream& operator<<(std::ostream& out, const IntfId& intf) {
   return out << intf.text();
}

} // namespace Pelt

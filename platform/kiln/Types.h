// The framework's short names for the standard integer and text types.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

using U8 = std::uint8_t;
using U16 = std::uint16_t;
using U32 = std::uint32_t;
using U64 = std::uint64_t;
using S16 = std::int16_t;
using S32 = std::int32_t;
using S64 = std::int64_t;

namespace Kiln {

// Text is the standard string: UTF-8 bytes, value semantics.
using String = std::string;

} // namespace Kiln

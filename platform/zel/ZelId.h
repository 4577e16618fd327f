// Numbers that name chips, pipes and ports.
#pragma once

#include "kiln/Types.h"
#include "zl/ZlPortLayout.h"

namespace ZelId {

// A chip: 0 to 7, or 8 for none.
using ZelDevId = U8;
constexpr ZelDevId noDevice = 8;
constexpr unsigned maxDevices = 8;

// A pipe of a chip: a logical one, or all of them.
class ZelPipeId {
 public:
   constexpr ZelPipeId() noexcept = default;
   constexpr ZelPipeId(U16 value) noexcept : value_(value) {}
   constexpr operator U16() const noexcept { return value_; }

   static constexpr U16 max() { return ZlPort::maxPipes - 1; } // the largest physical pipe
   static constexpr U16 allPipes() { return 65535; }           // every pipe at once

 private:
   U16 value_ = 0;
};

// A port of a chip: 0 to 455, or 456 for no port.
class PortIndex {
 public:
   static constexpr U16 min = 0;
   static constexpr U16 invalid = 456;

   constexpr PortIndex() noexcept = default;
   // Throws std::range_error for a larger value.
   explicit PortIndex(U16 value);
   constexpr U16 value() const noexcept { return value_; }
   bool operator==(const PortIndex&) const noexcept = default;

 private:
   U16 value_ = invalid;
};

} // namespace ZelId

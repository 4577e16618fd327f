// The memory in which the chips keep their hardware counters: the process's own, or a mapped file, so that
// the counters outlive the agent as those of a real chip do.
#pragma once

#include "kiln/OwnedFd.h"
#include "kiln/Types.h"

#include <array>
#include <span>

namespace SoftChip {

// One region a chip, by device id. Belongs to the fleet.
class HardwareMemory {
 public:
   static constexpr unsigned regionLimit = 8;
   static constexpr std::size_t regionBytesLimit = 64U << 20;

   // Empty: the process's own memory. Else a file, created when missing. std::runtime_error, with a text that
   // names the file, when it can't be opened, is another program's, is damaged, or is in use by another
   // agent.
   explicit HardwareMemory(const Kiln::String& path);
   HardwareMemory(const HardwareMemory&) = delete;
   HardwareMemory& operator=(const HardwareMemory&) = delete;
   ~HardwareMemory();

   // The region of a chip, good until regionDel or the end. A file still has what a region of the same layout
   // held before; everything else is zero. `layout` says in up to 63 characters what lies where; a file whose
   // region has another layout or size is a std::runtime_error that says both.
   std::span<U64> regionIs(U8 deviceId, const Kiln::String& layout, std::size_t words);
   // The chip is gone, its counters too.
   void regionDel(U8 deviceId);

 private:
   struct Slot {
      U64 words = 0; // 0: no region
      std::array<char, 64> layout{};
   };
   struct Header {
      U64 magic = 0;
      U32 version = 0;
      U32 byteOrder = 0;
      std::array<Slot, regionLimit> slots;
      U64 checksum = 0;
   };

   static U64 checksumOf(const Header& header);
   void openFile();
   void checkHeader(U64 fileSize) const;
   void claim(U8 deviceId, const Kiln::String& layout, std::size_t words);
   [[noreturn]] void fail(const Kiln::String& what) const;
   void unmap();

   Kiln::String path_; // empty: the process's own memory
   Kiln::OwnedFd file_;
   Header* header_ = nullptr;
   std::array<std::span<U64>, regionLimit> regions_;
};

} // namespace SoftChip

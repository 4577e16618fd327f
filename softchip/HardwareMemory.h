// The memory for the chips' hardware counters: the process's own, or a mapped file, so that counters outlive the agent,
// as those of a real chip do.
#pragma once

#include "kiln/MappedFault.h"
#include "kiln/TrustedFile.h"
#include "kiln/Types.h"

#include <array>
#include <optional>
#include <span>

namespace SoftChip {

// One region per chip, by device id. Belongs to the fleet.
class HardwareMemory {
 public:
   static constexpr unsigned regionLimit = 8;
   static constexpr std::size_t regionBytesLimit = 64U << 20;

   // `path` empty: the process's own memory. Otherwise a file of this user's, created if missing. What an agent that
   // was killed has left unsealed begins anew: the whole file, or a chip's region. Throws std::runtime_error, naming
   // the file, if it cannot be opened, is another user's or program's, or is in use by another agent.
   explicit HardwareMemory(const Kiln::String& path);
   HardwareMemory(const HardwareMemory&) = delete;
   HardwareMemory& operator=(const HardwareMemory&) = delete;
   ~HardwareMemory();

   // The region of a chip, valid until regionDel or the end. Holds what the file's region of the same layout held
   // before; otherwise zeros. `layout` says in up to 63 characters what lies where. Throws std::runtime_error, naming
   // both, if the file's region has another layout or size.
   std::span<U64> regionIs(U8 deviceId, const Kiln::String& layout, std::size_t words);
   // The chip is gone, and so are its counters.
   void regionDel(U8 deviceId);
   const Kiln::String& path() const { return path_; }
   // What became of the file under the running agent: "was removed", "was cut", "was overwritten". Empty: nothing.
   Kiln::String loss() const;
   // What this object has created goes: the file, or regions in it. The memory stays until the end.
   void createdDel();

 private:
   struct Slot {
      U64 words = 0; // 0: no region
      std::array<char, 64> layout{};
   };
   // As it lies in the file.
   struct Header {
      U64 magic = 0; // written last
      U32 version = 0;
      U32 byteOrder = 0;
      std::array<Slot, regionLimit> slots;
      U64 formerChecksum = 0;             // the last release's, of all before it; it had no seals
      std::array<U64, regionLimit> seals; // of the slots, each written when its region is ready
   };

   void openFile();
   void beginFile();
   void checkFile();
   bool isUnsealed(U64 fileSize) const;
   void upgrade();
   bool isHeld(unsigned id) const;
   U64 sealOf(unsigned id) const;
   void claim(U8 deviceId, const Kiln::String& layout, std::size_t words);
   [[noreturn]] void fail(const Kiln::String& what) const;
   void unmap();

   Kiln::String path_; // empty: the process's own memory
   std::optional<Kiln::FileLock> lock_;
   Kiln::OwnedFd file_;
   bool isNewFile_ = false;
   std::array<bool, regionLimit> isNewRegion_{};
   Header* header_ = nullptr;
   std::array<std::span<U64>, regionLimit> regions_;
   // A chip whose file was cut counts from zero, in memory only.
   Kiln::GuardedMapping headerGuard_;
   std::array<Kiln::GuardedMapping, regionLimit> guards_;
};

} // namespace SoftChip

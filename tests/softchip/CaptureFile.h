// Capture files that a test builds itself.
#pragma once

#include "kiln/Types.h"
#include "tests/support/TemporaryFolder.h"

#include <fstream>
#include <string>
#include <vector>

namespace ZelTest {

using Octets = std::vector<U8>;

// Builds a capture file, in either byte order.
class CaptureFile {
 public:
   explicit CaptureFile(bool bigEndian = false) : bigEndian_(bigEndian) {}

   CaptureFile& header(U32 magic = 0xa1b2c3d4, U32 linkType = 1) {
      constexpr U32 snapLength = 64; // records may be longer, which a reader must take
      return u32(magic).u16(2).u16(4).u32(0).u32(0).u32(snapLength).u32(linkType);
   }
   CaptureFile& record(U32 captured, U32 original, const Octets& octets) {
      return u32(1000).u32(7).u32(captured).u32(original).raw(octets);
   }
   CaptureFile& raw(const Octets& octets) {
      octets_.insert(octets_.end(), octets.begin(), octets.end());
      return *this;
   }
   const std::string& write() {
      std::ofstream file(path_, std::ios::binary);
      file.write(reinterpret_cast<const char*>(octets_.data()), static_cast<std::streamsize>(octets_.size()));
      return path_;
   }

 private:
   CaptureFile& u32(U32 value) {
      auto high = static_cast<U16>(value >> 16);
      auto low = static_cast<U16>(value);
      return bigEndian_ ? u16(high).u16(low) : u16(low).u16(high);
   }
   CaptureFile& u16(U16 value) {
      auto high = static_cast<U8>(value >> 8);
      auto low = static_cast<U8>(value);
      return raw(bigEndian_ ? Octets{high, low} : Octets{low, high});
   }

   bool bigEndian_;
   Octets octets_;
   const ZelTest::TemporaryFolder folder_;
   const std::string path_ = folder_.path() + "/frames.pcap";
};

} // namespace ZelTest

// Reads capture files in the classic pcap format, one frame at a time.
#pragma once

#include "kiln/Types.h"

#include <chrono>
#include <cstdio>
#include <memory>
#include <optional>
#include <span>
#include <stdexcept>
#include <string_view>
#include <vector>

namespace SoftChip {

// A capture that cannot be read (any further). The message names the file, the record, if there is one (counted from
// 1), what is wrong and, where it helps, what to do.
class CaptureError : public std::runtime_error {
 public:
   using std::runtime_error::runtime_error;
};

// One record. `bytes` is the captured part of the frame, without FCS; it belongs to the reader and is valid until its
// next call. `originalLength` is the frame's length on the wire without FCS, never below `bytes.size()`, whatever the
// file's snap length says.
struct CapturedFrame {
   std::span<const U8> bytes;
   U32 originalLength = 0;
   std::chrono::nanoseconds timestamp{}; // since 1970
};

// An open capture file. Both byte orders, micro- and nanosecond timestamps, Ethernet only. Holds one record at a time,
// of up to `maxRecordLength` octets. Removes the FCS, if the file says that its frames carry one. Not shared between
// threads.
class CaptureReader {
 public:
   static constexpr U32 maxRecordLength = 16 * 1024 * 1024;

   // Throws CaptureError if the file cannot be opened or is not such a capture.
   explicit CaptureReader(const Kiln::String& path);

   // The next frame, or nothing at the end of the file. Throws CaptureError for a record that is cut off or corrupt; no
   // frame follows it.
   std::optional<CapturedFrame> next();

 private:
   struct CloseFile {
      void operator()(std::FILE* file) const { std::fclose(file); }
   };

   void readFileHeader();
   void takeMagic(std::span<const U8> bytes);
   void takeLinkType(U32 field);
   void takeRecordLengths(U32 captured, U32 original);
   std::size_t read(std::span<U8> into);
   U32 u32(std::span<const U8> bytes, std::size_t offset) const;
   U16 u16(std::span<const U8> bytes, std::size_t offset) const;
   [[noreturn]] void fail(std::string_view what);
   [[noreturn]] void failRecord(std::string_view what);

   Kiln::String path_;
   std::unique_ptr<std::FILE, CloseFile> file_; // null once the reader is at its end
   bool bigEndian_ = false;
   bool nanoseconds_ = false;
   U32 fcsOctetsCaptured_ = 0;
   U64 record_ = 0; // number of the record being read
   std::vector<U8> buffer_;
};

} // namespace SoftChip

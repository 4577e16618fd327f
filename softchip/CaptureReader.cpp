// The classic pcap format: a file header of 24 octets, then records with a header of 16 octets each.
#include "softchip/CaptureReader.h"

#include "softchip/Frame.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cinttypes>
#include <system_error>

namespace SoftChip {

namespace {

constexpr std::size_t fileHeaderOctets = 24;
constexpr std::size_t recordHeaderOctets = 16;
constexpr U32 magicMicroseconds = 0xa1b2c3d4;
constexpr U32 magicNanoseconds = 0xa1b23c4d;
constexpr U32 magicPcapng = 0x0a0d0d0a; // reads the same in both byte orders
constexpr U16 versionMajor = 2;
constexpr U16 versionMinor = 4;
constexpr U32 linkTypeEthernet = 1;

Kiln::String hex(U32 value) {
   std::array<char, 16> text{};
   std::snprintf(text.data(), text.size(), "0x%08" PRIx32, value);
   return text.data();
}

} // namespace

CaptureReader::CaptureReader(const Kiln::String& path) : path_(path), file_(std::fopen(path.c_str(), "rb")) {
   if (!file_) {
      fail("cannot be opened: " + std::generic_category().message(errno));
   }
   readFileHeader();
}

void CaptureReader::readFileHeader() {
   std::array<U8, fileHeaderOctets> header{};
   std::size_t got = read(header);
   // The kind of file first: of a short text file, "not a pcap file" says more than "cut off".
   if (got >= sizeof(U32)) {
      takeMagic(header);
   }
   if (got < header.size()) {
      fail("the file header is cut off: it has " + std::to_string(got) + " of " +
           std::to_string(header.size()) + " octets");
   }
   if (u16(header, 4) != versionMajor || u16(header, 6) != versionMinor) {
      fail("pcap version " + std::to_string(u16(header, 4)) + "." + std::to_string(u16(header, 6)) +
           " is not supported, expected 2.4");
   }
   takeLinkType(u32(header, 20));
}

void CaptureReader::takeMagic(std::span<const U8> bytes) {
   // The magic number tells the file's byte order, and how fine its timestamps are.
   for (bool bigEndian : {false, true}) {
      bigEndian_ = bigEndian;
      U32 magic = u32(bytes, 0);
      nanoseconds_ = magic == magicNanoseconds;
      if (nanoseconds_ || magic == magicMicroseconds) {
         return;
      }
   }
   U32 magic = u32(bytes, 0);
   if (magic == magicPcapng) {
      fail("is a pcapng file, expected classic pcap: convert it with 'editcap -F pcap IN OUT'");
   }
   fail("is not a pcap file: it begins with " + hex(magic));
}

void CaptureReader::takeLinkType(U32 field) {
   // The high bits of the link type may give the length of the FCS that each record ends with. It counts 16-bit words,
   // but some writers count octets. Both are accepted: Ethernet's FCS has 4 octets anyway.
   constexpr U32 linkTypeMask = 0x03ffffff;
   constexpr U32 fcsLengthGiven = 0x04000000;
   constexpr unsigned fcsLengthShift = 28;
   constexpr U32 fcsWords = fcsOctets / 2;
   U32 linkType = field & linkTypeMask;
   if (linkType != linkTypeEthernet) {
      fail("has link type " + std::to_string(linkType) + ", expected 1 (Ethernet)");
   }
   if ((field & fcsLengthGiven) == 0) {
      return;
   }
   U32 length = field >> fcsLengthShift;
   if (length == fcsWords || length == fcsOctets) {
      fcsOctetsCaptured_ = fcsOctets;
   } else if (length != 0) {
      fail("says that its frames end with an FCS of " + std::to_string(2 * length) +
           " octets, expected none or 4");
   }
}

std::optional<CapturedFrame> CaptureReader::next() {
   if (!file_) {
      return std::nullopt;
   }
   ++record_;
   std::array<U8, recordHeaderOctets> header{};
   std::size_t got = read(header);
   if (got == 0) {
      file_.reset();
      return std::nullopt;
   }
   if (got < header.size()) {
      failRecord("the record header is cut off: it has " + std::to_string(got) + " of " +
                 std::to_string(header.size()) + " octets");
   }
   U32 captured = u32(header, 8);
   U32 original = u32(header, 12);
   takeRecordLengths(captured, original);
   got = read(buffer_);
   if (got < captured) {
      failRecord("the frame is cut off: the file holds " + std::to_string(got) + " of " +
                 std::to_string(captured) + " octets");
   }

   CapturedFrame frame;
   frame.originalLength = original - std::min(original, fcsOctetsCaptured_);
   // A capture that stopped short of the FCS has nothing to take off: only the length of the frame is less.
   frame.bytes = std::span<const U8>(buffer_).first(std::min(captured, frame.originalLength));
   frame.timestamp = std::chrono::seconds(u32(header, 0));
   if (nanoseconds_) {
      frame.timestamp += std::chrono::nanoseconds(u32(header, 4));
   } else {
      frame.timestamp += std::chrono::microseconds(u32(header, 4));
   }
   return frame;
}

// Refuses lengths that only a corrupt file can have, before allocating memory for them.
void CaptureReader::takeRecordLengths(U32 captured, U32 original) {
   if (captured > original) {
      failRecord("the record is corrupt: " + std::to_string(captured) + " octets captured of a frame of " +
                 std::to_string(original));
   }
   if (original > maxRecordLength) {
      failRecord("the record is corrupt: a frame of " + std::to_string(original) +
                 " octets, expected up to " + std::to_string(maxRecordLength));
   }
   buffer_.resize(captured);
}

// Fills `into`. Returns how much it got: less than asked for only at the end of the file.
std::size_t CaptureReader::read(std::span<U8> into) {
   errno = 0;
   std::size_t got = std::fread(into.data(), 1, into.size(), file_.get());
   if (got < into.size() && std::ferror(file_.get()) != 0) {
      fail("cannot be read: " + std::generic_category().message(errno));
   }
   return got;
}

U32 CaptureReader::u32(std::span<const U8> bytes, std::size_t offset) const {
   U32 value = 0;
   for (std::size_t i = 0; i < sizeof(value); ++i) {
      value = value << 8 | bytes[offset + (bigEndian_ ? i : sizeof(value) - 1 - i)];
   }
   return value;
}

U16 CaptureReader::u16(std::span<const U8> bytes, std::size_t offset) const {
   std::size_t high = bigEndian_ ? 0 : 1;
   return static_cast<U16>(bytes[offset + high] << 8 | bytes[offset + 1 - high]);
}

// Leaves the reader at its end: behind a corrupt record nobody knows where the next one begins.
void CaptureReader::fail(std::string_view what) {
   file_.reset();
   throw CaptureError(path_ + ": " + Kiln::String(what));
}

void CaptureReader::failRecord(std::string_view what) {
   fail("record " + std::to_string(record_) + ": " + Kiln::String(what));
}

} // namespace SoftChip

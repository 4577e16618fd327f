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

constexpr size_t fileHeaderOctets = 24;
constexpr size_t recordHeaderOctets = 16;
constexpr uint32_t magicMicroseconds = 0xa1b2c3d4;
constexpr uint32_t magicNanoseconds = 0xa1b23c4d;
constexpr uint32_t magicPcapng = 0x0a0d0d0a; // reads the same in both byte orders
constexpr uint16_t versionMajor = 2;
constexpr uint16_t versionMinor = 4;
constexpr uint32_t linkTypeEthernet = 1;

std::string hex(uint32_t value) {
   std::array<char, 16> text{};
   std::snprintf(text.data(), text.size(), "0x%08" PRIx32, value);
   return text.data();
}

} // namespace

CaptureReader::CaptureReader(const std::string& path) : path_(path), file_(std::fopen(path.c_str(), "rb")) {
   if (!file_)
      fail("cannot be opened: " + std::generic_category().message(errno));
   readFileHeader();
}

void CaptureReader::readFileHeader() {
   std::array<uint8_t, fileHeaderOctets> header{};
   size_t got = read(header);
   if (got >= sizeof(uint32_t))
      takeMagic(header);
   if (got < header.size())
      fail("the file header is cut off: it has " + std::to_string(got) + " of " +
           std::to_string(header.size()) + " octets");
   if (u16(header, 4) != versionMajor || u16(header, 6) != versionMinor)
      fail("pcap version " + std::to_string(u16(header, 4)) + "." + std::to_string(u16(header, 6)) +
           " is not supported, expected 2.4");
   takeLinkType(u32(header, 20));
}

void CaptureReader::takeMagic(std::span<const uint8_t> bytes) {
   for (bool bigEndian : {false, true}) {
      bigEndian_ = bigEndian;
      uint32_t magic = u32(bytes, 0);
      nanoseconds_ = magic == magicNanoseconds;
      if (nanoseconds_ || magic == magicMicroseconds)
         return;
   }
   uint32_t magic = u32(bytes, 0);
   if (magic == magicPcapng)
      fail("is a pcapng file, expected classic pcap: convert it with 'editcap -F pcap IN OUT'");
   fail("is not a pcap file: it begins with " + hex(magic));
}

void CaptureReader::takeLinkType(uint32_t field) {
   // The link type field's high bits may say how long an FCS each record ends with. The top bit group counts
   // 16-bit words; some writers put octets there instead, and Ethernet's FCS has 4 octets either way.
   constexpr uint32_t linkTypeMask = 0x03ffffff;
   constexpr uint32_t fcsLengthGiven = 0x04000000;
   constexpr unsigned fcsLengthShift = 28;
   constexpr uint32_t fcsWords = fcsOctets / 2;
   uint32_t linkType = field & linkTypeMask;
   if (linkType != linkTypeEthernet)
      fail("has link type " + std::to_string(linkType) + ", expected 1 (Ethernet)");
   if ((field & fcsLengthGiven) == 0)
      return;
   uint32_t length = field >> fcsLengthShift;
   if (length == fcsWords || length == fcsOctets)
      fcsOctetsCaptured_ = fcsOctets;
   else if (length != 0)
      fail("says that its frames end with an FCS of " + std::to_string(2 * length) +
           " octets, expected none or 4");
}

std::optional<CapturedFrame> CaptureReader::next() {
   if (!file_)
      return std::nullopt;
   ++record_;
   std::array<uint8_t, recordHeaderOctets> header{};
   size_t got = read(header);
   if (got == 0) {
      file_.reset();
      return std::nullopt;
   }
   if (got < header.size())
      failRecord("the record header is cut off: it has " + std::to_string(got) + " of " +
                 std::to_string(header.size()) + " octets");
   uint32_t captured = u32(header, 8);
   uint32_t original = u32(header, 12);
   takeRecordLengths(captured, original);
   got = read(buffer_);
   if (got < captured)
      failRecord("the frame is cut off: the file holds " + std::to_string(got) + " of " +
                 std::to_string(captured) + " octets");

   CapturedFrame frame;
   frame.originalLength = original - std::min(original, fcsOctetsCaptured_);
   frame.bytes = std::span<const uint8_t>(buffer_).first(std::min(captured, frame.originalLength));
   frame.timestamp = std::chrono::seconds(u32(header, 0));
   if (nanoseconds_)
      frame.timestamp += std::chrono::nanoseconds(u32(header, 4));
   else
      frame.timestamp += std::chrono::microseconds(u32(header, 4));
   return frame;
}

/** Refuses lengths that only a corrupt file can have, before any memory is taken for them. */
void CaptureReader::takeRecordLengths(uint32_t captured, uint32_t original) {
   if (captured > original)
      failRecord("the record is corrupt: " + std::to_string(captured) + " octets captured of a frame of " +
                 std::to_string(original));
   if (original > maxRecordLength)
      failRecord("the record is corrupt: a frame of " + std::to_string(original) +
                 " octets, expected up to " + std::to_string(maxRecordLength));
   buffer_.resize(captured);
}

/** Fills `into`; answers less than its size only at the end of the file. */
size_t CaptureReader::read(std::span<uint8_t> into) {
   errno = 0;
   size_t got = std::fread(into.data(), 1, into.size(), file_.get());
   if (got < into.size() && std::ferror(file_.get()) != 0)
      fail("cannot be read: " + std::generic_category().message(errno));
   return got;
}

uint32_t CaptureReader::u32(std::span<const uint8_t> bytes, size_t offset) const {
   uint32_t value = 0;
   for (size_t i = 0; i < sizeof(value); ++i)
      value = value << 8 | bytes[offset + (bigEndian_ ? i : sizeof(value) - 1 - i)];
   return value;
}

uint16_t CaptureReader::u16(std::span<const uint8_t> bytes, size_t offset) const {
   size_t high = bigEndian_ ? 0 : 1;
   return static_cast<uint16_t>(bytes[offset + high] << 8 | bytes[offset + 1 - high]);
}

void CaptureReader::fail(std::string_view what) {
   file_.reset();
   throw CaptureError(path_ + ": " + std::string(what));
}

void CaptureReader::failRecord(std::string_view what) {
   fail("record " + std::to_string(record_) + ": " + std::string(what));
}

} // namespace SoftChip

// make-captures FOLDER: writes the captures that tests replay. Shares no code with the reader that they test. The
// counts to expect are in the tests, and come from another program.
#include "kiln/Types.h"

#include <filesystem>
#include <fstream>
#include <iostream>
#include <string>
#include <vector>

namespace {

using Octets = std::vector<U8>;

constexpr U32 fcsOctets = 4; // on the wire; the captures hold no FCS

// A number of so many octets, in network byte order.
Octets number(U64 value, unsigned octets) {
   Octets made;
   for (unsigned left = octets; left > 0; --left) {
      made.push_back(static_cast<U8>(value >> (8 * (left - 1))));
   }
   return made;
}

Octets joined(std::initializer_list<Octets> parts) {
   Octets made;
   for (const Octets& part : parts) {
      made.insert(made.end(), part.begin(), part.end());
   }
   return made;
}

// A capture file, written frame by frame, with a frame every millisecond.
class Capture {
 public:
   explicit Capture(const std::filesystem::path& path, bool bigEndian = false, bool nanoseconds = false)
        : file_(path, std::ios::binary), bigEndian_(bigEndian), tick_(nanoseconds ? 1'000'000 : 1'000) {
      file_.exceptions(std::ios::failbit | std::ios::badbit);
      put(nanoseconds ? 0xa1b23c4d : 0xa1b2c3d4, 4);
      put(2, 2); // version 2.4
      put(4, 2);
      put(0, 4);
      put(0, 4);
      put(65535, 4); // snap length
      put(1, 4);     // Ethernet
   }

   // Adds so many frames, padded with zeros to their length on the wire. Of each, at most `kept` octets are captured.
   void add(unsigned count, Octets frame, std::size_t wireLength, std::size_t kept = 65535) {
      frame.resize(wireLength - fcsOctets);
      kept = std::min(kept, frame.size());
      for (unsigned i = 0; i < count; ++i) {
         put(frames_ / 1000, 4);
         put(frames_ % 1000 * tick_, 4);
         put(kept, 4);
         put(frame.size(), 4);
         file_.write(reinterpret_cast<const char*>(frame.data()), static_cast<std::streamsize>(kept));
         ++frames_;
      }
   }

 private:
   void put(U64 value, unsigned octets) {
      const Octets made = number(value, octets);
      for (unsigned i = 0; i < octets; ++i) {
         file_.put(static_cast<char>(made[bigEndian_ ? i : octets - 1 - i]));
      }
   }

   std::ofstream file_;
   bool bigEndian_;
   U64 tick_; // a millisecond, in the unit of the timestamps' fractions
   U64 frames_ = 0;
};

constexpr U64 station = 0x0200'0000'0001;
constexpr U64 otherStation = 0x0200'0000'0002;
constexpr U64 everyone = 0xffff'ffff'ffff;
constexpr U16 arp = 0x0806;
constexpr U16 ipv4Type = 0x0800;
constexpr U16 ipv6Type = 0x86dd;
constexpr U16 customerTag = 0x8100;
constexpr U16 serviceTag = 0x88a8;

Octets ethernet(U64 destination, U16 type, const Octets& payload = {}) {
   return joined({number(destination, 6), number(otherStation, 6), number(type, 2), payload});
}

Octets tag(U16 vlan, U16 type) {
   return joined({number(vlan, 2), number(type, 2)});
}

Octets ipv4(U32 source, U16 payloadLength, const Octets& payload) {
   constexpr U16 headerLength = 20;
   constexpr U8 udp = 17;
   const U32 destination = 0xc000'0201; // 192.0.2.1
   const U32 words[] = {0x4500,
                        U32{headerLength} + payloadLength,
                        0,
                        0,
                        0x4000 + udp,
                        0,
                        source >> 16,
                        source & 0xffff,
                        destination >> 16,
                        destination & 0xffff};
   U32 sum = 0;
   for (const U32 word : words) {
      sum += word;
   }
   const U32 checksum = ~(sum % 0xffff) & 0xffff;
   Octets made;
   for (const U32& word : words) {
      made = joined({made, number(&word == &words[5] ? checksum : word, 2)});
   }
   return joined({made, payload});
}

Octets ipv6(U64 sourceNetwork, U16 payloadLength, const Octets& payload) {
   constexpr U8 udp = 17;
   return joined({number(0x6000'0000, 4),
                  number(payloadLength, 2),
                  {udp, 64},
                  number(sourceNetwork, 8),
                  number(9, 8),
                  number(0x2001'0db8'0000'0000, 8),
                  number(1, 8),
                  payload});
}

Octets udp(U16 destinationPort, U16 length) {
   return joined({number(49152, 2), number(destinationPort, 2), number(length, 2), number(0, 2)});
}

// Sizes on either side of each counter's limits, each in a different number of frames.
void writeSizes(Capture capture) {
   const std::size_t sizes[] = {60,   63,   64,   65,   127,  128,  255,  256,  511,  512,  1023, 1024,
                                1518, 1519, 2047, 2048, 4095, 4096, 8191, 8192, 9215, 9216, 9600};
   unsigned count = 0;
   for (const std::size_t size : sizes) {
      capture.add(++count, ethernet(station, 0x88b5), size); // a type for local experiments
   }
}

void writeDestinations(Capture capture) {
   constexpr U16 lengthField = 50; // in place of a type
   capture.add(2, ethernet(station, ipv4Type, ipv4(0xc000'0202, 30, udp(7, 30))), 68);
   capture.add(3, ethernet(0x3333'0000'0001, ipv6Type, ipv6(0xfe80'0000'0000'0000, 20, udp(7, 20))), 78);
   capture.add(4, ethernet(0x0180'c200'0014, lengthField, {0xfe, 0xfe, 0x03}), 68);
   capture.add(5, ethernet(0x0100'5e00'0012, ipv4Type, ipv4(0xc000'0203, 300, udp(7, 300))), 338);
   capture.add(7, ethernet(everyone, arp), 64);
}

void writeTags(Capture capture) {
   const Octets inner = tag(10, ipv4Type);
   capture.add(1,
               ethernet(station, serviceTag,
                        joined({tag(200, customerTag), inner, ipv4(0xc000'0202, 18, udp(7, 18))})),
               68);
   capture.add(1, ethernet(everyone, serviceTag, joined({tag(200, customerTag), tag(10, arp)})), 68);
}

// Ten frames of VXLAN 100, each with 50 octets of headers around the inner frame.
void writeVxlan(Capture capture) {
   for (const U16 length : {U16{148}, U16{92}}) {
      const auto udpLength = static_cast<U16>(length - 34);
      const Octets header = joined({number(0x0800'0000, 4), number(100, 3), {0}});
      const Octets inner = ethernet(station, arp);
      const Octets outer = ipv4(0xc000'0202, udpLength, joined({udp(4789, udpLength), header, inner}));
      capture.add(length == 148 ? 8 : 2, ethernet(station, ipv4Type, outer), length + fcsOctets);
   }
}

// Sources within 10.1.0.0/16, and just outside of it.
void writeSources(Capture capture) {
   const struct {
      unsigned count;
      U32 source;
      U16 udpLength;
   } flows[] = {{3, 0x0a01'0000, 100}, {5, 0x0a01'ffff, 700}, {11, 0x0a00'ffff, 40}, {13, 0x0a02'0000, 1400}};
   for (const auto& flow : flows) {
      capture.add(flow.count,
                  ethernet(station, ipv4Type, ipv4(flow.source, flow.udpLength, udp(7, flow.udpLength))),
                  flow.udpLength + 34U + fcsOctets);
   }
   capture.add(2, ethernet(station, ipv6Type, ipv6(0x0a01'0000'0000'0000, 100, udp(7, 100))), 158);
}

// Only the beginning of each frame is captured.
void writeClipped(Capture capture) {
   constexpr std::size_t kept = 40;
   capture.add(6, ethernet(station, ipv4Type, ipv4(0xc000'0202, 1480, udp(7, 1480))), 1518, kept);
   capture.add(4, ethernet(everyone, customerTag, tag(30, arp)), 72, kept);
   capture.add(1, ethernet(0x0100'5e00'0012, ipv4Type), 9600, kept);
}

} // namespace

int main(int count, char** arguments) {
   if (count != 2) {
      std::cerr << "Usage: make-captures FOLDER\n";
      return 2;
   }
   const std::filesystem::path folder = arguments[1];
   std::filesystem::create_directories(folder);
   writeSizes(Capture(folder / "sizes.pcap"));
   writeDestinations(Capture(folder / "destinations.pcap"));
   writeTags(Capture(folder / "tags.pcap"));
   writeVxlan(Capture(folder / "vxlan.pcap", true));
   writeSources(Capture(folder / "sources.pcap", false, true));
   writeClipped(Capture(folder / "clipped.pcap", true, true));
   return 0;
}

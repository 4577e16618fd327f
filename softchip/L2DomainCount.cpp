// Decides a frame's L2 domain and counts it there.
#include "softchip/L2DomainCount.h"

#include "zel/VlanId.h"

#include <algorithm>
#include <arpa/inet.h>
#include <charconv>
#include <stdexcept>

namespace SoftChip {

namespace {

constexpr U32 vniLimit = 1U << 24;

// Whether the addresses agree in their first bits.
bool agree(const std::array<U8, 16>& a, const std::array<U8, 16>& b, unsigned bits) {
   const unsigned octets = bits / 8;
   const unsigned rest = bits % 8;
   return std::equal(a.begin(), a.begin() + octets, b.begin()) &&
          (rest == 0 || ((a[octets] ^ b[octets]) >> (8 - rest)) == 0);
}

[[noreturn]] void refusePrefix(const Kiln::String& text) {
   throw std::invalid_argument("'" + text +
                               "' is no prefix: expected one like 10.1.0.0/16 or 2001:db8::/32, " +
                               "its address zero behind the prefix");
}

} // namespace

void checkVlan(U16 vlan) {
   if (vlan < Bridging::VlanId::min || vlan > Bridging::VlanId::max) {
      throw std::invalid_argument("no VLAN " + std::to_string(vlan) + ": expected 1 to 4094");
   }
}

L2DomainCount::L2DomainCount(PipeManager& tables, bool vxlan)
     : ingress_(find(tables, "ingL2DomainCount")), egress_(find(tables, "egrL2DomainCount")), vxlan_(vxlan) {}

L2DomainCount::Tables L2DomainCount::find(PipeManager& tables, const Kiln::String& matchTable) {
   const MatchTable* const match = tables.matchTable(matchTable);
   return {match, match != nullptr ? tables.counterTableOf(*match) : nullptr};
}

void L2DomainCount::vniIs(U32 vni, U16 vlan) {
   if (vni >= vniLimit) {
      throw std::invalid_argument("no VNI " + std::to_string(vni) + ": expected 0 to " +
                                  std::to_string(vniLimit - 1));
   }
   checkVlan(vlan);
   vlanOfVni_[vni] = vlan;
}

L2DomainCount::Prefix L2DomainCount::parsePrefix(const Kiln::String& text) {
   Prefix parsed{IpVersion::v4, {}, 0};
   const std::size_t slash = text.find('/');
   if (slash == Kiln::String::npos) {
      refusePrefix(text);
   }
   const Kiln::String address = text.substr(0, slash);
   if (inet_pton(AF_INET, address.c_str(), parsed.address.data()) != 1) {
      parsed.version = IpVersion::v6;
      if (inet_pton(AF_INET6, address.c_str(), parsed.address.data()) != 1) {
         refusePrefix(text);
      }
   }
   const unsigned width = parsed.version == IpVersion::v4 ? 32 : 128;
   const char* const end = text.data() + text.size();
   const auto [stop, error] = std::from_chars(text.data() + slash + 1, end, parsed.bits);
   if (error != std::errc() || stop != end || parsed.bits > width) {
      refusePrefix(text);
   }
   for (unsigned bit = parsed.bits; bit < width; ++bit) {
      if (((parsed.address[bit / 8] >> (7 - bit % 8)) & 1) != 0) {
         refusePrefix(text);
      }
   }
   return parsed;
}

bool L2DomainCount::isTranslated(const IpHeader& ip) const {
   return std::any_of(snat_.begin(), snat_.end(), [&](const Prefix& prefix) {
      return prefix.version == ip.version && agree(prefix.address, ip.source, prefix.bits);
   });
}

L2Domain L2DomainCount::domainOf(const FrameInfo& frame, U16 vlan) const {
   // A VXLAN without a VLAN here is not terminated: its frames are ordinary ones of the outer VLAN.
   if (vxlan_ && frame.vxlan.present) {
      const auto found = vlanOfVni_.find(frame.vxlan.vni);
      if (found != vlanOfVni_.end()) {
         return {found->second, 1, false};
      }
   }
   return {vlan, 0, isTranslated(frame.ip)};
}

bool L2DomainCount::count(const Tables& tables, const L2Domain& domain, unsigned pipe,
                          const CounterValue& counted) {
   const U32 handle = tables.counter != nullptr ? tables.match->domains().lookUp(domain) : 0;
   if (handle == 0) {
      return false;
   }
   tables.counter->count(pipe, handle, counted.packets, counted.bytes);
   return true;
}

} // namespace SoftChip

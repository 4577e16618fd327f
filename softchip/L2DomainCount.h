// Counts frames by VLAN: the pipeline's stage between the VLAN decision and forwarding.
#pragma once

#include "softchip/Pipeline.h"

#include <unordered_map>

namespace SoftChip {

// Throws std::invalid_argument unless the VLAN is 1 to 4094.
void checkVlan(U16 vlan);

// Owned by the chip, under the SDK's lock. Frames allocate nothing. A frame counts in at most one entry, with the bytes
// that it arrived with: a decapsulated one with its outer headers.
class L2DomainCount {
 public:
   // Without `vxlan`, no frame is decapsulated.
   L2DomainCount(PipeManager& tables, bool vxlan);

   // Frames of the VXLAN are decapsulated into the VLAN. Throws std::invalid_argument for a VNI of more than 24 bits or
   // a VLAN outside 1 to 4094.
   void vniIs(U32 vni, U16 vlan);
   // Frames from an IPv4 or IPv6 prefix, such as "10.1.0.0/16", hit a source-NAT rule. Throws std::invalid_argument for
   // anything else, and if address bits are set behind the prefix.
   void snatAdd(const Kiln::String& prefix) { snat_.push_back(parsePrefix(prefix)); }

   struct Prefix {
      IpVersion version;
      std::array<U8, 16> address;
      unsigned bits;
   };
   // As snatAdd takes it.
   static Prefix parsePrefix(const Kiln::String& text);

   // The domain of a frame that arrived in the VLAN. A frame is either decapsulated or translated.
   L2Domain domainOf(const FrameInfo& frame, U16 vlan) const;
   void ingress(const PassingFrames& passing, unsigned pipe) { count(ingress_, passing, pipe); }
   void egress(const PassingFrames& passing, unsigned pipe) { count(egress_, passing, pipe); }

   // Adds to the entry that the domain hits. False if there is none.
   bool add(bool isIngress, const L2Domain& domain, const CounterValue& counted) {
      return count(isIngress ? ingress_ : egress_, domain, 0, counted);
   }

 private:
   struct Tables {
      const MatchTable* match = nullptr; // null in a program that lacks it
      CounterTable* counter = nullptr;
   };

   static Tables find(PipeManager& tables, const Kiln::String& matchTable);
   static bool count(const Tables& tables, const L2Domain& domain, unsigned pipe,
                     const CounterValue& counted);
   static void count(const Tables& tables, const PassingFrames& passing, unsigned pipe) {
      count(tables, passing.domain(), pipe, {passing.packets, passing.packets * passing.octetsEach});
   }
   bool isTranslated(const IpHeader& ip) const;

   Tables ingress_;
   Tables egress_;
   bool vxlan_;
   std::unordered_map<U32, U16> vlanOfVni_;
   std::vector<Prefix> snat_;
};

} // namespace SoftChip

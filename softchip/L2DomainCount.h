// Counts frames by VLAN: the stage of the pipeline between the VLAN decision and the forwarding.
#pragma once

#include "softchip/Pipeline.h"

#include <unordered_map>

namespace SoftChip {

// Owned by the chip, under the SDK's lock. Frames allocate nothing. A frame is counted in one entry at most,
// with the bytes that it has on arrival: a decapsulated one with its outer headers.
class L2DomainCount {
 public:
   explicit L2DomainCount(PipeManager& tables);

   // Frames of the VXLAN are decapsulated into the VLAN. A VNI of more than 24 bits, or a VLAN outside 1 to
   // 4094, is a std::invalid_argument.
   void vniIs(U32 vni, U16 vlan);
   // Frames from these addresses hit a source-NAT rule: an IPv4 or IPv6 prefix, "10.1.0.0/16". Anything else,
   // or address bits behind the prefix, is a std::invalid_argument.
   void snatAdd(const Kiln::String& prefix) { snat_.push_back(parsePrefix(prefix)); }

   struct Prefix {
      IpVersion version;
      std::array<U8, 16> address;
      unsigned bits;
   };
   // As snatAdd takes it.
   static Prefix parsePrefix(const Kiln::String& text);

   // Where the frame belongs that arrived in the VLAN. What is decapsulated is not translated as well.
   L2Domain domainOf(const FrameInfo& frame, U16 vlan) const;
   void ingress(const PassingFrames& passing, unsigned pipe) { count(ingress_, passing, pipe); }
   void egress(const PassingFrames& passing, unsigned pipe) { count(egress_, passing, pipe); }

   // Adds to the entry that the domain hits. False when there is none.
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
   std::unordered_map<U32, U16> vlanOfVni_;
   std::vector<Prefix> snat_;
};

} // namespace SoftChip

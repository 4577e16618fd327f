// L3 interfaces: what may happen to them, and what must hold of VLANs, their entries in hardware, and their records.
#include "counters/l3/ZelCountersL3Intf.h"
#include "kiln/OperatorLog.h"
#include "tests/campaign/Campaign.h"
#include "tests/campaign/Readers.h"

#include <algorithm>
#include <string_view>

namespace Campaign {

namespace {

constexpr U16 firstVlan = 10;
constexpr U16 vlanLimit = 26;
constexpr U64 outerHeaders = 50; // octets of a decapsulated packet that its VLAN does not count

Pelt::IntfId idOf(const std::string& intf) {
   return Pelt::IntfId(Kiln::Name(intf));
}

std::string nameOf(U16 vlan) {
   return vlan % 3 == 0   ? "Ethernet1." + std::to_string(vlan)
          : vlan % 3 == 1 ? "Vlan" + std::to_string(vlan)
                          : "Ethernet" + std::to_string(200 + vlan);
}

} // namespace

void Run::l3Intf(Draws& draws) {
   const auto number = static_cast<U16>(firstVlan + draws.below(vlanLimit - firstVlan));
   const std::string intf = nameOf(number);
   if (model_.l3.contains(intf)) {
      // The model last: what is read once more as they go still counts.
      agent_->l3Del(idOf(intf));
      model_.l3Went(intf);
      return;
   }
   const U16 vlan = draws.oneIn(5) ? firstVlan : number; // some share one
   model_.l3Came(intf, vlan, now());
   agent_->l3Add(idOf(intf), Bridging::VlanId(vlan));
}

void Run::l3Traffic(Draws& draws) {
   if (model_.chips.empty() || model_.l3.empty()) {
      return;
   }
   const U8 device = draws.oneOf(model_.chips).first;
   const U16 vlan = draws.oneOf(model_.l3).second.vlan;
   const bool isIngress = draws.oneIn(2);
   const bool isDecapsulated = draws.oneIn(4);
   const bool isNat = isIngress && !isDecapsulated && draws.oneIn(3);
   const U64 packets = draws.below(1000);
   const U64 bytes = packets * outerHeaders + draws.below(100000);
   try {
      agent_->fleet().chip(device)->l2DomainCountAdd(
           isIngress, {vlan, static_cast<U8>(isDecapsulated ? 1 : 0), isNat}, {packets, bytes});
   } catch (const std::invalid_argument&) {
      return; // it has no such entry
   }
   const bool isCountedAsNat = isNat && config_.capabilities.vrfNat; // else in the entry of all others
   const auto count = [&](L3Intf& l3) {
      l3.counted[isIngress ? 0 : 2] += bytes - (isDecapsulated ? packets * outerHeaders : 0);
      l3.counted[isIngress ? 1 : 3] += packets;
      l3.nat[0] += isCountedAsNat ? packets : 0;
      l3.nat[1] += isCountedAsNat ? bytes : 0;
   };
   count(model_.vlans[vlan]);
   for (auto& [intf, l3] : model_.l3) {
      if (l3.vlan == vlan) {
         count(l3);
      }
   }
}

// Room runs out, entries are refused, and the chip's state changes.
void Run::l3Trouble(Draws& draws) {
   ++result_.faults;
   const U64 what = draws.below(4);
   const auto times = static_cast<U32>(1 + draws.below(3));
   if (what == 0) {
      agent_->fleet().faults().failNext("pdEntryAdd", draws.oneIn(2) ? 9 : 22, times);
   } else if (what == 1) {
      agent_->fleet().faults().failNext("pdEntryDel", 22, times);
      model_.mayRefuseDeletions = true;
      for (auto& [device, chip] : model_.chips) {
         chip.hasLeftovers = true;
      }
      for (auto& [intf, l3] : model_.l3) {
         l3.isLossy = true;
      }
   } else if (!model_.chips.empty()) {
      auto& [device, chip] =
           *std::next(model_.chips.begin(), static_cast<std::ptrdiff_t>(draws.below(model_.chips.size())));
      if (what == 2) {
         const U64 room = draws.below(24);
         agent_->fleet().chip(device)->capacityIs(draws.oneIn(2) ? "ingL2DomainCount" : "egrL2DomainCount",
                                                  room > 18 ? 8000 : static_cast<U32>(room));
      } else {
         const U64 state = draws.below(6);
         chip.state = state < 3 ? 8 : static_cast<U32>(state);
         agent_->chipStateIs("Zel" + std::to_string(device), chip.state);
      }
   }
}

void Run::checkL3() {
   const auto& l3Sm = agent_->countersMgr().zelCountersL3IntfSm();
   expect(l3Sm->l3IntfToVid().size() == model_.l3.size(), "there is an L3 interface too few or too many");
   for (const auto& [intf, l3] : model_.l3) {
      expect(l3Sm->l3IntfToVid().contains(idOf(intf)), intf, " is not held");
   }
   std::array<int, vlanLimit> pending{};
   for (auto& [device, chip] : model_.chips) {
      const auto& helper = l3Sm->helper(device);
      expect(!!helper == config_.capabilities.vlanCounters, "the helper of device ", +device,
             " is missing, or should be");
      if (!helper) {
         continue;
      }
      std::array<std::size_t, 2> entries{};
      std::size_t programmed = 0;
      for (U16 number = firstVlan; number < vlanLimit; ++number) {
         const Bridging::VlanId vlan(number);
         const bool isProgrammed = !!helper->matchSpec(vlan);
         const bool isPending = helper->pendingVlan(vlan);
         const bool isDeferred = helper->deferredDel(vlan);
         programmed += isProgrammed ? 1 : 0;
         pending[number] += isPending ? 1 : 0;
         expect(!isPending || !isProgrammed, "VLAN ", number, " of device ", +device,
                " is programmed and pending");
         expect(((isProgrammed && !isDeferred) || isPending) == chip.wanted.contains(number), "VLAN ", number,
                " of device ", +device, " is neither programmed nor pending, or not wanted");
         expect(!isDeferred || (isProgrammed && chip.state != 8), "VLAN ", number, " of device ", +device,
                " is wrongly deferred");
         entries[0] += isProgrammed ? 1U + config_.capabilities.vxlan + config_.capabilities.vrfNat : 0;
         entries[1] += isProgrammed ? 1U + config_.capabilities.vxlan : 0;
      }
      expect(helper->matchSpec().size() == programmed, "there are other VLANs of device ", +device);
      constexpr std::array tables{"ingL2DomainCount", "egrL2DomainCount"};
      for (std::size_t i = 0; i < tables.size(); ++i) {
         const std::size_t present = agent_->fleet().chip(device)->tables().matchTable(tables[i])->size();
         expect(present == entries[i] || (chip.hasLeftovers && present > entries[i]), tables[i],
                " of device ", +device, " has ", present, " entries and not ", entries[i]);
      }
   }
   for (const auto& entry : Kiln::OperatorLog::instance().newEntries()) {
      const std::string id = entry.message->id;
      const std::size_t vlan = entry.text.find("VLAN ");
      if (id.starts_with("ZEL_COUNTERS_COUNTER_RESOURCE")) {
         shortages_[static_cast<U16>(std::stoul(entry.text.substr(vlan + 5)))] +=
              id.ends_with("FULL") ? 1 : -1;
      } else if (id == "ZEL_COUNTERS_OVERFLOW_ERROR") {
         ++wrapMessages_;
      } else {
         const bool isOfTables =
              id.starts_with("VEX_COUNTERS_TABLE") || id.starts_with("VEX_COUNTERS_HISTORY");
         expect(id.starts_with("ZEL_COUNTERS_CHIP") || (isOfTables && wasMended_),
                "there is a message " + id + ": " + entry.text);
      }
   }
   for (U16 vlan = firstVlan; vlan < vlanLimit; ++vlan) {
      expect(shortages_[vlan] == pending[vlan], "the messages of VLAN ", vlan, " tell of ", shortages_[vlan],
             " shortages and not of ", pending[vlan]);
   }
   expectIs(wrapMessages_, model_.wrapReadings, "the number of messages of wraps");
}

void Run::checkL3Records(bool isCalm) {
   const bool isAnswered =
        std::ranges::none_of(model_.chips, [](const auto& entry) { return entry.second.hasLost; });
   for (auto& [intf, l3] : model_.l3) {
      Silo::Sample<Silo::Interface::NatCounter> nat;
      expect(readers_->nat.read(intf, nat) == Silo::ReadResult::ok, "there is no NAT record of " + intf);
      expect(nat.record.creationTime == static_cast<S64>(l3.createdTime),
             "the creation time of " + intf + " is wrong");
      expect(!isCalm || now() - nat.record.lastUpdate <= 1.0, "the NAT record of " + intf + " is old");
      const std::array<U64, 2> natTotals{nat.record.totalPackets, nat.record.totalBytes};
      const bool isKnown = isCalm && isAnswered && !l3.isLossy && config_.capabilities.vlanCounters;
      for (std::size_t i = 0; i < natTotals.size(); ++i) {
         expect(natTotals[i] <= l3.nat[i] && natTotals[i] >= l3.natSeen[i] &&
                     (!isKnown || natTotals[i] == l3.nat[i]),
                "NAT total " + std::to_string(i) + " of " + intf + " is " + std::to_string(natTotals[i]) +
                     ", after " + std::to_string(l3.natSeen[i]) + ", and " + std::to_string(l3.nat[i]) +
                     " were counted");
      }
      l3.natSeen = natTotals;
      const bool isVlanIntf = intf.starts_with("Vlan");
      if (!isVlanIntf && intf.find('.') == std::string::npos) {
         continue;
      }
      Silo::Sample<Silo::Interface::L3IntfCounters> sample;
      const auto result = (isVlanIntf ? readers_->vlanIntfs : readers_->subIntfs).read(intf, sample);
      if (result != Silo::ReadResult::ok) {
         expect(!isCalm || model_.chips.empty(), "the record of " + intf + " is " + Silo::text(result));
         continue;
      }
      for (std::size_t i = 0; i < l3.counted.size(); ++i) {
         const U64 total = sample.record.totals[i];
         expect(total <= l3.counted[i] && total >= l3.seen[i] && (!isKnown || total == l3.counted[i]),
                "total " + std::to_string(i) + " of " + intf + " is " + std::to_string(total) + ", after " +
                     std::to_string(l3.seen[i]) + ", and " + std::to_string(l3.counted[i]) + " were counted");
         l3.seen[i] = total;
         note(total);
      }
   }
}

} // namespace Campaign

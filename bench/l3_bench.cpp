// The cost of VLAN counters of four chips, 4,094 VLANs with five entries each: one read of all; one NAT refresh pass,
// and how long it holds the activity lock; and enabling and disabling all. Each against its floor in the same run.
#include "bench/InTurns.h"
#include "counters/l3/ZelCountersL3Intf.h"
#include "kiln/ActivityLock.h"
#include "kiln/ActivityManager.h"
#include "softchip/Fleet.h"
#include "softchip/SoftPd.h"
#include "zl/ZelCountersIntf.h"
#include "zl/ZelSdk.h"

#include <algorithm>
#include <benchmark/benchmark.h>
#include <memory>
#include <vector>

namespace {

using Bench::Caches;
using Bridging::VlanId;
using ZelCounter::packets_and_bytes;

constexpr unsigned chips = 4;
constexpr unsigned entriesPerVlan = 5;
constexpr unsigned reads = chips * entriesPerVlan * VlanId::max;

Pelt::IntfId intfOf(unsigned vlan) {
   return Pelt::IntfId(("Vlan" + std::to_string(vlan)).c_str());
}

// Everything but the VLANs.
class Switch {
 public:
   Switch() {
      nat_ = Kiln::allocate<Silo::Interface::AllNatCounterDir>(
           Silo::Store::temporary(), "nat",
           Silo::TableOptions{.capacity = VlanId::max,
                              .pollingInterval = 1,
                              .clockDomain = Silo::ClockDomain::monotonic(),
                              .onCorruption = {},
                              .isBegunAnew = true});
      system_->chipCapabilitiesIs("full", {.vlanCounters = true, .vxlan = true, .vrfNat = true});
      l3Table->hasNotificationActiveIs(true);
      sm = Kiln::allocate<ZelCounter::ZelCountersL3IntfSm>(l3Table, system_, nat_);
      sm->hasNotificationActiveIs(true);
      for (U8 dev = 0; dev < chips; ++dev) {
         SoftChip::Chip& chip = fleet_.chipAdd({.name = "Zel" + std::to_string(dev), .deviceId = dev});
         sm->addDevice(dev, {"full"}, pd_, chip.program(), Kiln::allocate<ZelSlice::ChipStatus>());
      }
   }
   Switch(const Switch&) = delete;
   Switch& operator=(const Switch&) = delete;
   ~Switch() {
      sm = nullptr;
      nat_ = nullptr;
   }

   void addVlans() {
      for (unsigned vlan = 1; vlan <= VlanId::max; ++vlan) {
         l3Table->intfIdToL3IdIs(intfOf(vlan), vlan);
      }
   }
   Silo::Interface::AllNatCounterDir& nat() { return *nat_; }

   Kiln::Ptr<VexL3Intf::Table> l3Table = Kiln::allocate<VexL3Intf::Table>("l3");
   Kiln::Ptr<ZelCounter::ZelCountersL3IntfSm> sm;

 private:
   SoftChip::Fleet fleet_;
   Kiln::Ptr<SoftChip::SoftPd> pd_ = Kiln::allocate<SoftChip::SoftPd>();
   Kiln::Ptr<ZelSystem::SystemStatus> system_ = Kiln::allocate<ZelSystem::SystemStatus>();
   Kiln::Ptr<Silo::Interface::AllNatCounterDir> nat_;
};

// The bare SDK reads that the library must make for all VLANs: chip, table handle and entry, in its order.
class Floor {
 public:
   explicit Floor(const Switch& of) {
      for (unsigned vlan = 1; vlan <= VlanId::max; ++vlan) {
         for (const auto& [dev, helper] : of.sm->helper()) {
            const auto& spec = helper->matchSpec(VlanId(vlan));
            const U32 ing = helper->ingL2DomainHandle();
            const U32 egr = helper->egrL2DomainHandle();
            reads_.insert(reads_.end(), {{dev, ing, spec->ingress.ordinary->handle},
                                         {dev, egr, spec->egress.ordinary->handle},
                                         {dev, ing, spec->ingress.decapsulated->handle},
                                         {dev, egr, spec->egress.decapsulated->handle},
                                         {dev, ing, spec->ingress.sourceNat->handle}});
         }
      }
   }

   void read() const { read(0, reads_.size()); }
   void read(unsigned vlan) const {
      constexpr std::size_t each = std::size_t{chips} * entriesPerVlan;
      read((vlan - 1) * each, each);
   }

 private:
   struct Read {
      U8 dev;
      U32 table;
      U32 entry;
   };
   void read(std::size_t first, std::size_t count) const {
      p4_pd_counter_value value{};
      for (const Read& each : std::span(reads_).subspan(first, count)) {
         ZelCountersIntf::counterReadDirect(ZelSdk::getZelSessionHdl(), each.dev,
                                            ZelId::ZelPipeId::allPipes(), each.table, each.entry, 0, &value);
         benchmark::DoNotOptimize(value);
      }
   }

   std::vector<Read> reads_;
};

template <class FloorWork, class Work>
void against(benchmark::State& state, Caches caches, unsigned units, const char* unit, FloorWork floorWork,
             Work work) {
   Bench::InTurns turns(caches);
   turns.run(state, floorWork, work);
   const double floorSeconds = turns.floorTimes.median();
   const double each = 1e9 / units;
   state.counters[Kiln::String("floor_ns_per_") + unit] = floorSeconds * each;
   state.counters[Kiln::String("own_ns_per_") + unit] = (turns.pathTimes.median() - floorSeconds) * each;
}

void readAll(benchmark::State& state, Caches caches) {
   Switch of;
   of.addVlans();
   const Floor floor(of);
   against(
        state, caches, reads, "entry", [&] { floor.read(); },
        [&] {
           packets_and_bytes rx;
           packets_and_bytes tx;
           packets_and_bytes snat;
           for (unsigned vlan = 1; vlan <= VlanId::max; ++vlan) {
              for (const auto& [dev, helper] : of.sm->helper()) {
                 helper->getSviStats(VlanId(vlan), &rx, &tx, &snat);
                 benchmark::DoNotOptimize(rx);
              }
           }
        });
}
ZEL_BENCH_HOT_AND_COLD(readAll, benchmark::kMillisecond);

// The floor also reads and writes each interface's record, as the pass must.
void natPass(benchmark::State& state, Caches caches) {
   Switch of;
   of.addVlans();
   const Floor floor(of);
   std::vector<Silo::Key> keys;
   for (unsigned vlan = 1; vlan <= VlanId::max; ++vlan) {
      keys.emplace_back(intfOf(vlan).text());
   }
   double longestHold = 0;
   against(
        state, caches, reads, "entry",
        [&] {
           for (unsigned vlan = 1; vlan <= VlanId::max; ++vlan) {
              const Silo::Key& key = keys[vlan - 1];
              floor.read(vlan);
              const auto record = of.nat().table().sampleOrDefault(key).record;
              of.nat().table().recordIs(key, record, 1.0);
           }
        },
        [&] {
           auto lock = Kiln::ActivityLockAnchor::lock();
           Kiln::ActivityLockAnchor::statisticsDel();
           of.sm->routedPortCounterSm()->updateRoutedPortCounters();
           lock.giveUp();
           const auto again = Kiln::ActivityLockAnchor::lock();
           longestHold = std::max(longestHold, Kiln::ActivityLockAnchor::statistics().longestHold);
        });
   state.counters["longest_lock_ms"] = 1e3 * longestHold;
}
ZEL_BENCH_HOT_AND_COLD(natPass, benchmark::kMillisecond);

// The floor adds and deletes the same entries through the PD interface.
void enableAndDisable(benchmark::State& state, Caches caches) {
   Switch of;
   SoftChip::SoftPd pd;
   const U32 session = ZelSdk::getZelSessionHdl();
   std::vector<U32> entries(VlanId::max * std::size_t{entriesPerVlan});
   struct Kind {
      const char* table;
      U64 decapType;
      U64 snat;
   };
   const Kind kinds[entriesPerVlan] = {{"ingL2DomainCount", 0, 0},
                                       {"ingL2DomainCount", 1, 0},
                                       {"ingL2DomainCount", 0, 1},
                                       {"egrL2DomainCount", 0, 0},
                                       {"egrL2DomainCount", 1, 0}};
   const auto& helper = of.sm->helper(0);
   against(
        state, caches, VlanId::max, "vlan",
        [&] {
           for (std::size_t i = 0; i < entries.size(); ++i) {
              const Kind& kind = kinds[i % entriesPerVlan];
              const ZlPd::MatchField match[] = {{"vlanId", i / entriesPerVlan + 1},
                                                {"decapType", kind.decapType},
                                                {"ingMdSnatHit", kind.snat}};
              pd.entryAdd(session, 0, ZelId::ZelPipeId::allPipes(), kind.table,
                          std::span(match).first(i % entriesPerVlan < 3 ? 3 : 2), &entries[i]);
           }
           for (std::size_t i = 0; i < entries.size(); ++i) {
              pd.entryDel(session, 0, kinds[i % entriesPerVlan].table, entries[i]);
           }
        },
        [&] {
           for (unsigned vlan = 1; vlan <= VlanId::max; ++vlan) {
              helper->enableSviStats(VlanId(vlan));
           }
           for (unsigned vlan = 1; vlan <= VlanId::max; ++vlan) {
              helper->disableSviStats(VlanId(vlan));
           }
        });
}
ZEL_BENCH_HOT_AND_COLD(enableAndDisable, benchmark::kMillisecond);

} // namespace

BENCHMARK_MAIN();

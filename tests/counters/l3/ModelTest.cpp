// Interfaces and chips come and go, and chip states and capacities change, at random. After every step the whole state
// is compared with a model.
#include "tests/counters/l3/L3Rig.h"
#include "tests/support/Random.h"

#include <map>
#include <set>

namespace {

using namespace ZelTest;

constexpr unsigned devices = 3;
constexpr unsigned interfaces = 12;

class L3Model : public L3Rig {
 protected:
   // The expected state of a chip.
   struct ModelChip {
      unsigned ingressEach; // ingress entries for each VLAN
      unsigned egressEach;
      U32 capacity = 9999; // of the ingress table, entries
      U32 state = 8;
      double retryAt = Kiln::never;
      std::set<U16> programmed;
      std::vector<U16> pending; // VLANs, in the order in which they came
      std::set<U16> deferred;

      U32 held() const { return static_cast<U32>(programmed.size()) * ingressEach; }
   };

   U32 draw(U32 limit) { return static_cast<U32>(random.below(limit)); }
   // Two interfaces may share a VLAN.
   static U16 vlanOf(U32 intf) { return static_cast<U16>(100 + intf * 2 / 3); }
   static IntfId intfOf(U32 intf) { return IntfId(("Vlan" + std::to_string(intf)).c_str()); }

   void expectMessage(const char* which, U16 vlan) { expected.push_back(which + std::to_string(vlan)); }
   void modelEnable(ModelChip& model, U16 vlan) {
      model.deferred.erase(vlan);
      if (model.programmed.contains(vlan)) {
         return;
      }
      const bool wasPending = std::count(model.pending.begin(), model.pending.end(), vlan) != 0;
      if (model.held() + model.ingressEach <= model.capacity) {
         model.programmed.insert(vlan);
         if (wasPending) {
            std::erase(model.pending, vlan);
            expectMessage("NORMAL ", vlan);
         }
      } else if (!wasPending) {
         model.pending.push_back(vlan);
         expectMessage("FULL ", vlan);
      }
   }
   void modelDisable(ModelChip& model, U16 vlan) {
      if (std::erase(model.pending, vlan) != 0) {
         expectMessage("NORMAL ", vlan);
      } else if (model.programmed.contains(vlan) && model.state != 8) {
         model.deferred.insert(vlan);
      } else if (model.programmed.erase(vlan) != 0) {
         model.retryAt = std::min(model.retryAt, time.now() + 1);
      }
   }

   void toggleInterface() {
      const U32 intf = draw(interfaces);
      const bool add = !held.contains(intf);
      if (add) {
         held[intf] = static_cast<S64>(time.now());
         l3Table->intfIdToL3IdIs(intfOf(intf), vlanOf(intf));
      } else {
         held.erase(intf);
         l3Table->intfIdToL3IdDel(intfOf(intf));
      }
      for (auto& [dev, model] : chips) {
         add ? modelEnable(model, vlanOf(intf)) : modelDisable(model, vlanOf(intf));
      }
   }
   void toggleChip() {
      const auto dev = static_cast<U8>(draw(devices));
      if (const auto gone = chips.find(dev); gone != chips.end()) {
         for (const U16 vlan : gone->second.pending) {
            expectMessage("NORMAL ", vlan);
         }
         chips.erase(gone);
         sm->deleteDevice(dev);
         fleet.chipDel(dev);
         return;
      }
      const bool vxlan = draw(2) != 0;
      const bool vrfNat = draw(2) != 0;
      makeChip(dev, {.vlanCounters = true, .vxlan = vxlan, .vrfNat = vrfNat});
      addDevice(dev);
      ModelChip& model = chips[dev];
      model.ingressEach = 1U + vxlan + vrfNat;
      model.egressEach = 1U + vxlan;
      for (const IntfId& intf : sm->l3IntfToVid().keys()) {
         modelEnable(model, sm->l3IntfToVid(intf).value());
      }
   }
   void changeState(U8 dev, ModelChip& model) {
      const U32 state = draw(2) != 0 ? 8 : 1 + draw(7);
      const bool isChange = state != model.state;
      model.state = state;
      chipStatus[dev]->stateIs(state);
      if (isChange && state == 8) {
         for (const U16 vlan : model.deferred) {
            model.programmed.erase(vlan);
         }
         model.deferred.clear();
         model.retryAt = std::min(model.retryAt, time.now() + 1);
      }
   }
   void changeCapacity(U8 dev, ModelChip& model) {
      model.capacity = draw(16);
      chip(dev).capacityIs("ingL2DomainCount", model.capacity);
   }
   void pass() {
      const double end = time.now() + draw(5) * 0.375;
      while (true) {
         ModelChip* due = nullptr;
         for (auto& [dev, model] : chips) {
            due = model.retryAt <= end && (due == nullptr || model.retryAt < due->retryAt) ? &model : due;
         }
         if (due == nullptr) {
            break;
         }
         due->retryAt = Kiln::never;
         for (const U16 vlan : std::vector<U16>(due->pending)) {
            modelEnable(*due, vlan);
         }
      }
      advance(end - time.now());
   }

   void step() {
      const U32 what = draw(10);
      if (what < 5) {
         toggleInterface();
      } else if (what < 6 || chips.empty()) {
         toggleChip();
      } else {
         auto& [dev, model] = *std::next(chips.begin(), draw(static_cast<U32>(chips.size())));
         what < 7 ? changeState(dev, model) : what < 8 ? changeCapacity(dev, model) : pass();
      }
   }

   void check() {
      for (const auto& [dev, model] : chips) {
         const auto& helper = sm->helper(dev);
         ASSERT_TRUE(helper);
         const auto keys = [](const auto& map) {
            std::set<U16> all;
            for (const VlanId vlan : map.keys()) {
               all.insert(vlan.value());
            }
            return all;
         };
         ASSERT_EQ(keys(helper->matchSpec()), model.programmed);
         ASSERT_EQ(keys(helper->pendingVlan()), std::set<U16>(model.pending.begin(), model.pending.end()));
         ASSERT_EQ(keys(helper->deferredDel()), model.deferred);
         for (const U16 vlan : model.pending) {
            ASSERT_FALSE(model.programmed.contains(vlan)) << vlan;
         }
         ASSERT_TRUE(std::includes(model.programmed.begin(), model.programmed.end(), model.deferred.begin(),
                                   model.deferred.end()));
         ASSERT_EQ(ingress(dev), model.programmed.size() * model.ingressEach);
         ASSERT_EQ(egress(dev), model.programmed.size() * model.egressEach);
         ASSERT_EQ(helper->retrySm()->timeMin(), model.retryAt);
      }
      checkMessages();
      ASSERT_EQ(nat->table().size(), held.size());
      for (const auto& [intf, created] : held) {
         ASSERT_TRUE(nat->table().has(Silo::Key(intfOf(intf).text())));
         ASSERT_EQ(nat->counter(intfOf(intf)).creationTime, created);
      }
   }
   // Within a step, messages of different chips may come in any order.
   void checkMessages() {
      auto seen = messages();
      std::sort(seen.begin(), seen.end());
      std::sort(expected.begin(), expected.end());
      ASSERT_EQ(seen, expected);
      expected.clear();
   }

   Random random;
   std::map<U8, ModelChip> chips;
   std::map<U32, S64> held; // interfaces by number, with their creation time
   std::vector<std::string> expected;
};

TEST_F(L3Model, HoldsAtEveryStep) {
   makeSm();
   for (int i = 0; i < 4000; ++i) {
      step();
      check();
      ASSERT_FALSE(HasFatalFailure()) << "step " << i;
   }
}

} // namespace

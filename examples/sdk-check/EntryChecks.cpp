// Match entries that exist only to count VLANs.
#include "Kit.h"
#include "zl/ZelCountersIntf.h"
#include "zl/ZelSdk.h"

#include <array>

namespace SdkCheck {

namespace {

constexpr U16 allPipes = 65535;
constexpr U16 lastVlan = 4094;

class EntryChecks {
 public:
   EntryChecks(Kit& kit, const char* table, bool hasSnat)
        : kit_(kit), report_(kit.report), table_(table), hasSnat_(hasSnat) {
      const auto& catalogue = *kit.hooks.resourceInfo;
      const U32 index = catalogue.zlTableIndex(table_);
      if (index != ZlResourceInfo::notFound) {
         handle_ = catalogue.zlTable(index)->handle;
      }
   }

   void run() {
      U32 entry = 0;
      int status = add(lastVlan, 0, false, &entry);
      report_.check(status == 0 && entry != 0, "entry of " + table_, "status 0 and a handle that is not 0",
                    statusText(status) + " and " + std::to_string(entry));
      if (status != 0 || entry == 0) {
         return;
      }
      p4_pd_counter_value value{};
      status = static_cast<int>(
           ZelCountersIntf::counterReadDirect(sess_hdl, device(), allPipes, handle_, entry, 0, &value));
      report_.check(status == 0 && value.packets == 0 && value.bytes == 0,
                    "new entry of " + table_ + " counts", "status 0, no packets, no bytes",
                    statusText(status) + ", " + std::to_string(value.packets) + ", " +
                         std::to_string(value.bytes));
      if (kit_.hooks.capabilities.vxlan) {
         checkOther("decapsulated", 1, false, entry);
      }
      if (hasSnat_) {
         checkOther("source-NAT", 0, true, entry);
      }
      U32 again = 0;
      status = add(lastVlan, 0, false, &again);
      report_.check(status == 4, "the same entry of " + table_ + " again", "status 4", statusText(status));
      status = remove(entry);
      report_.check(status == 0, "deletion from " + table_, "status 0", statusText(status));
      status = remove(entry);
      report_.check(status == 6, "the same deletion from " + table_ + " again", "status 6",
                    statusText(status));
      checkFull();
   }

 private:
   U32 device() const { return static_cast<U32>(kit_.target.device); }

   int add(U16 vlan, U64 decapType, bool isSnat, U32* entry) {
      const std::array<ZlPd::MatchField, 3> fields{
           {{"vlanId", vlan}, {"decapType", decapType}, {"ingMdSnatHit", U64{isSnat}}}};
      return static_cast<int>(kit_.hooks.pd->entryAdd(sess_hdl, device(), allPipes, table_,
                                                      std::span(fields).first(hasSnat_ ? 3 : 2), entry));
   }
   int remove(U32 entry) {
      return static_cast<int>(kit_.hooks.pd->entryDel(sess_hdl, device(), table_, entry));
   }

   void checkOther(const char* what, U64 decapType, bool isSnat, U32 first) {
      U32 entry = 0;
      const int status = add(lastVlan, decapType, isSnat, &entry);
      report_.check(status == 0 && entry != 0 && entry != first, std::string(what) + " entry of " + table_,
                    "status 0 and another handle", statusText(status) + " and " + std::to_string(entry));
      if (status == 0) {
         remove(entry);
      }
   }

   // The library takes 9 for an ordinary state, and waits until there is room.
   void checkFull() {
      std::vector<U32> added;
      int status = 0;
      const U64 decapTypes = kit_.hooks.capabilities.vxlan ? 2 : 1;
      const U64 kinds = decapTypes * (hasSnat_ ? 2 : 1);
      for (U64 n = 0; n < kinds * lastVlan && status == 0; ++n) {
         U32 entry = 0;
         status = add(static_cast<U16>(1 + n / kinds), n % decapTypes, n % kinds >= decapTypes, &entry);
         if (status == 0) {
            added.push_back(entry);
         }
         kit_.report.alive();
      }
      int deleted = 0;
      for (const U32 entry : added) {
         const int one = remove(entry);
         deleted = deleted == 0 ? one : deleted;
         kit_.report.alive();
      }
      const std::string after = statusText(status) + " after " + std::to_string(added.size()) + " entries";
      if (status == 0) {
         report_.notSupported("full " + table_, "it has room for all VLANs: " + after);
      } else {
         report_.check(status == 9, "full " + table_, "status 9", after);
      }
      report_.check(deleted == 0, "deletion of them all", "status 0", statusText(deleted));
   }

   Kit& kit_;
   Report& report_;
   std::string table_;
   bool hasSnat_;
   U32 handle_ = 0;
};

} // namespace

void checkEntries(Kit& kit) {
   if (!kit.hooks.capabilities.vlanCounters || !kit.hooks.resourceInfo) {
      kit.report.notTried("VLAN entries", "no capability 'vlanCounters'");
   } else if (!kit.hooks.pd) {
      kit.report.check(false, "VLAN entries", "a PD interface for the capability vlanCounters",
                       "no hook 'pd'");
   } else {
      EntryChecks(kit, "ingL2DomainCount", kit.hooks.capabilities.vrfNat).run();
      EntryChecks(kit, "egrL2DomainCount", false).run();
   }
}

} // namespace SdkCheck

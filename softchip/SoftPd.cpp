// Turns match fields into rules and passes them to the chip's tables.
#include "softchip/SoftPd.h"

#include "softchip/Fleet.h"
#include "zel/VlanId.h"
#include "zl/ZelSdk.h"

namespace SoftChip {

namespace {

// The rule that the fields describe; none if they are invalid.
std::optional<MatchRule> ruleOf(std::span<const ZlPd::MatchField> match) {
   MatchRule rule;
   for (const ZlPd::MatchField& field : match) {
      if (field.name == "vlanId" && field.value >= Bridging::VlanId::min &&
          field.value <= Bridging::VlanId::max) {
         rule.vlanId = static_cast<U16>(field.value);
      } else if (field.name == "decapType" && field.value < L2DomainIndex::decapTypes) {
         rule.decapType = static_cast<U8>(field.value);
      } else if (field.name == "ingMdSnatHit" && field.value <= 1) {
         rule.snatHit = field.value == 1;
      } else {
         return std::nullopt;
      }
   }
   return rule.vlanId != 0 && rule.decapType ? std::optional(rule) : std::nullopt;
}

// Runs `operation` on a match table of a chip.
template <class Operation>
U32 onTable(U32 session, EntryPoint entryPoint, U32 device, const Kiln::String& name, Operation operation) {
   Fleet* const fleet = Fleet::instance();
   if (session != sess_hdl || fleet == nullptr) {
      return static_cast<U32>(session != sess_hdl ? statusSessionNotFound : statusInvalidArguments);
   }
   return static_cast<U32>(fleet->onChip(entryPoint, static_cast<int>(device), [&](Chip& chip) {
      const ZlResourceInfo::ZlTable* const table =
           chip.program()->zlTable(chip.program()->zlTableIndex(name));
      return table != nullptr ? operation(chip.tables(), table->handle) : statusTableNotFound;
   }));
}

} // namespace

Kiln::String SoftPd::counterDecodeMatch(U32 /*session*/, U32 device, U32 tableHandle, S32 entry) const {
   Fleet* const fleet = Fleet::instance();
   Chip* const chip = fleet != nullptr ? fleet->chip(device) : nullptr;
   return chip != nullptr ? chip->entryText(tableHandle, entry) : Kiln::String();
}

U32 SoftPd::entryAdd(U32 session, U32 device, U16 pipe, const Kiln::String& matchTable,
                     std::span<const ZlPd::MatchField> match, U32* entry) {
   const auto add = [&](PipeManager& tables, U32 tableHandle) {
      const std::optional<MatchRule> rule = ruleOf(match);
      if (!rule) {
         return statusInvalidArguments;
      }
      const L2DomainIndex& domains = tables.matchTable(matchTable)->domains();
      // The index has one entry for a domain: a second one would hide the first.
      if (domains.handle(rule->vlanId, *rule->decapType, rule->snatHit) != 0) {
         return statusAlreadyExists;
      }
      S32 handle = 0;
      const int status = tables.entryAdd(tableHandle, pipe, *rule, &handle);
      *entry = status == statusOk ? static_cast<U32>(handle) : 0;
      return status;
   };
   return onTable(session, EntryPoint::pdEntryAdd, device, matchTable, add);
}

U32 SoftPd::entryDel(U32 session, U32 device, const Kiln::String& matchTable, U32 entry) {
   return onTable(session, EntryPoint::pdEntryDel, device, matchTable,
                  [&](PipeManager& tables, U32 tableHandle) {
                     return tables.entryDel(tableHandle, static_cast<S32>(entry));
                  });
}

} // namespace SoftChip

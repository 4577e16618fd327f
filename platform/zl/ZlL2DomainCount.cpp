// Spells the match specs of L2 domains as the P4 program does.
#include "zl/ZlL2DomainCount.h"

namespace ZlL2DomainCount {

U32 Match::key() const {
   // An unset hit is a third value: a table may hold entries with the field and entries without it.
   const U32 snat = ingMdSnatHit ? 1U + U32{*ingMdSnatHit} : 0U;
   return snat << 24 | U32{decapType} << 16 | vlanId.value();
}

// The optional field is the last, so that the count alone leaves it out.
MatchFields::MatchFields(const Match& match)
     : fields_{{{"vlanId", match.vlanId.value()},
                {"decapType", match.decapType},
                {"ingMdSnatHit", U64{match.ingMdSnatHit.value_or(false)}}}},
       count_(match.ingMdSnatHit ? 3 : 2) {}

} // namespace ZlL2DomainCount

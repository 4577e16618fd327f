// From a port's raw MAC counters to a vetted record.
#include "ZelCounters.h"
#include "ZelCountersLog.h"
#include "ZelCountersTrace.h"
#include "kiln/RingLog.h"

#include <array>
#include <span>
#include <utility>

namespace ZelCounter {

namespace {

using Interface::Dot1pIndex;
using Interface::EthIntfStatistics;
using Interface::FieldGroup;
using Interface::wrapWindow;

// A wrap leads from the top of the 64-bit range to the bottom. The bounds are deliberately not symmetrical:
// the old value lies strictly above the one, the new value strictly below the other.
constexpr U64 wrapAbove = 0xFFFF000000000000;
constexpr U64 wrapBelow = 0xFFFFFFFFFFFF;

enum class Step { normal, wrap, upset };

Step trafficStep(U64 oldValue, U64 newValue) {
   if (newValue >= oldValue) {
      return newValue - oldValue >= wrapWindow ? Step::upset : Step::normal;
   }
   return oldValue > wrapAbove && newValue < wrapBelow ? Step::wrap : Step::upset;
}

U64 zeroIfNegative(U64 value) {
   return static_cast<S64>(value) < 0 ? 0 : value;
}

Step errorStep(U64 oldValue, U64 newValue) {
   const U64 from = zeroIfNegative(oldValue);
   const U64 to = zeroIfNegative(newValue);
   return to < from || to - from >= wrapWindow ? Step::upset : Step::normal;
}

constexpr std::size_t perPort = offsetof(EthIntfStatistics, inPfcFrames) / sizeof(U64);

// An index beyond the snapshot reads 0.
struct RawCounters {
   U64 operator[](std::size_t index) const { return index < values.size() ? values[index] : 0; }
   std::span<const U64> values;
};

// The fields before the per-priority blocks, each from its counter: written out at compile time, since every
// port goes through here on every pass.
template <std::size_t... field>
void fillPerPort(EthIntfStatistics& body, RawCounters raw, std::index_sequence<field...>) {
   (Interface::wordIs(body, field, raw[static_cast<std::size_t>(Interface::ethIntfFields[field].rmonIndex)]),
    ...);
}

void fillPerPriority(EthIntfStatistics& body, RawCounters raw) {
   for (unsigned priority = 0; priority <= Dot1pIndex::max; ++priority) {
      body.inPfcFrames.countIs(Dot1pIndex(priority), raw[BF_RMON_PFC_FRAMES_RECEIVED_PRIORITY_0 + priority]);
   }
   for (unsigned priority = 0; priority <= Dot1pIndex::max; ++priority) {
      body.outPfcFrames.countIs(Dot1pIndex(priority),
                                raw[BF_RMON_PFC_FRAMES_TRANSMITTED_PRIORITY_0 + priority]);
   }
}

void fill(EthIntfStatistics& body, RawCounters raw) {
   fillPerPort(body, raw, std::make_index_sequence<perPort>{});
   fillPerPriority(body, raw);
   body.outQueuePkts = {};
   body.outQueueDiscards = {};
}

} // namespace

void ZelCounters::getMacCounters(const Pelt::IntfId& intf, const Kiln::Ptr<VexTypes::IntfCounters>& record,
                                 const Kiln::Ptr<VexTypes::IntfCounters>& previous) {
   KILN_TRACE(4, "getMacCounters"
                      << ", intf: " << intf);
   const Kiln::Ptr<IntfCounters>* const last = macCountersLast().find(intf);
   if (last == nullptr) {
      return;
   }
   fill(record->refill(), {(*last)->counters()});
   checkMacCountersOverflow(intf, record, previous);
}

namespace {

// Nearly every reading: each counter stayed or rose within the window, below the top of the range. False wherever a
// full look is needed, and sometimes where it isn't. Bits, not branches, so that the fields go through the vector registers in pairs.
bool isAllNormal(const EthIntfStatistics& reading, const EthIntfStatistics& reference) {
   U64 suspicion = 0;
   for (std::size_t i = 0; i < EthIntfStatistics::fieldCount; ++i) {
      const U64 newValue = Interface::word(reading, i);
      const U64 oldValue = Interface::word(reference, i);
      suspicion |= ((newValue - oldValue) & ~(wrapWindow - 1)) | ((newValue | oldValue) & Interface::topBit);
   }
   return suspicion == 0;
}

} // namespace

void ZelCounters::checkMacCountersOverflow(const Pelt::IntfId& intf,
                                           const Kiln::Ptr<VexTypes::IntfCounters>& record,
                                           const Kiln::Ptr<VexTypes::IntfCounters>& previous) {
   bool wrapSeen = false;
   bool seuSeen = false;
   const EthIntfStatistics& reading = record->statistics();
   if (isAllNormal(reading, previous->statistics())) {
      return;
   }
   for (std::size_t i = 0; i < EthIntfStatistics::fieldCount; ++i) {
      const U64 newValue = Interface::word(reading, i);
      const U64 oldValue = Interface::word(previous->statistics(), i);
      const bool isTraffic = Interface::ethIntfFields[i].group == FieldGroup::wrapChecked;
      const Step step = isTraffic ? trafficStep(oldValue, newValue) : errorStep(oldValue, newValue);
      if (step == Step::wrap) {
         overflowCountInc(1);
         wrapSeen = true;
      } else if (step == Step::upset) {
         seuCountInc(1);
         previous->absorb(i, newValue);
         seuSeen = true;
      }
   }
   if (seuSeen) {
      KILN_RINGLOG_TRACE(4, "SEU error detected in counter of " << intf);
   }
   if (wrapSeen) {
      KILN_RINGLOG_TRACE(4, "Counter overflow detected for " << intf);
      const std::array<Kiln::String, 1> arguments{intf.text()};
      Kiln::OperatorLog::instance().log(ZEL_COUNTERS_OVERFLOW_ERROR, arguments);
   }
}

} // namespace ZelCounter

// Vets a reading in two stages: one pass that fills the record and sees that all is normal, as it nearly always is,
// and a look at each field when it isn't.
#include "counters/mac/MacAccounting.h"

#include "counters/chip/ZelCountersLog.h"
#include "counters/chip/ZelCountersTrace.h"
#include "kiln/RingLog.h"
#include "silo/Words.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <span>

namespace ZelCounter {

namespace {

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

using Silo::WordPair;

// Gathers the bits that are set in any step and any value, two fields at once. In nearly every reading the high ones
// stay clear: each counter stayed or rose within the window, below the top of the range.
struct Suspicion {
   WordPair steps{};
   WordPair values{};

   void add(WordPair oldValues, WordPair newValues) {
      steps |= newValues - oldValues;
      values |= newValues | oldValues;
   }
   // Says so of no reading with a wrap or an upset.
   bool isAllNormal() const {
      return (steps[0] | steps[1]) < wrapWindow && (values[0] | values[1]) < Interface::topBit;
   }
};

constexpr auto rmonIndices = [] {
   std::array<U16, EthIntfStatistics::fieldCount> indices{};
   for (std::size_t field = 0; field < indices.size(); ++field) {
      indices[field] = static_cast<U16>(Interface::ethIntfFields[field].rmonIndex);
   }
   return indices;
}();

// Fills the statistics from all the raw counters, and answers whether every step from the previous ones is normal.
// Fields go through the vector registers in pairs, and each is looked at while it is there, since every port goes
// through here on every pass. A loop over a table: written out, compilers keep the looking for the end and spill.
bool fill(EthIntfStatistics& body, const U64* raw, const EthIntfStatistics& previous) {
   constexpr std::size_t last = EthIntfStatistics::fieldCount - 1;
   static_assert(last % 2 == 0, "one field is left of the pairs");
   auto* const to = reinterpret_cast<std::byte*>(&body);
   const auto* const from = reinterpret_cast<const std::byte*>(&previous);
   Suspicion suspicion;
   for (std::size_t i = 0; i < last; i += 2) {
      const WordPair values{raw[rmonIndices[i]], raw[rmonIndices[i + 1]]};
      std::memcpy(to + i * sizeof(U64), &values, sizeof values);
      suspicion.add(Silo::loadPlain<WordPair>(from + i * sizeof(U64)), values);
   }
   const U64 value = raw[rmonIndices[last]];
   Interface::wordIs(body, last, value);
   suspicion.add(WordPair{Interface::word(previous, last), 0}, WordPair{value, 0});
   body.outQueuePkts = {};
   body.outQueueDiscards = {};
   return suspicion.isAllNormal();
}

// The same from a snapshot that holds only the first counters: the others read 0.
bool fillFromPart(EthIntfStatistics& body, std::span<const U64> raw, const EthIntfStatistics& previous) {
   bf_rmon_counter_array_t all{};
   std::copy(raw.begin(), raw.end(), all);
   return fill(body, all, previous);
}

} // namespace

void MacAccounting::account(const IntfCounters& snapshot, const Kiln::Ptr<VexTypes::IntfCounters>& record,
                            const Kiln::Ptr<VexTypes::IntfCounters>& previous) {
   const std::span<const U64> raw = snapshot.counters();
   const bool isWhole = raw.size() == BF_NUM_RMON_COUNTERS;
   const bool isAllNormal = isWhole ? fill(record->refill(), raw.data(), previous->statistics())
                                    : fillFromPart(record->refill(), raw, previous->statistics());
   if (!isAllNormal) {
      checkMacCountersOverflow(snapshot.intfId(), record, previous);
   }
}

void MacAccounting::checkMacCountersOverflow(const Pelt::IntfId& intf,
                                             const Kiln::Ptr<VexTypes::IntfCounters>& record,
                                             const Kiln::Ptr<VexTypes::IntfCounters>& previous) {
   bool wrapSeen = false;
   bool seuSeen = false;
   const EthIntfStatistics& reading = record->statistics();
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

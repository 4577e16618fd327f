// Vets a reading in two stages: a quick pass fills the record and sees whether all is normal, as it nearly always is.
// Only when it isn't, each field is looked at.
#include "counters/mac/MacAccounting.h"

#include "counters/chip/ZelCountersLog.h"
#include "counters/chip/ZelCountersTrace.h"
#include "kiln/EventLog.h"
#include "kiln/RingLog.h"
#include "kiln/Time.h"
#include "silo/Words.h"
#include "vex/BreakEvents.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <span>
#include <vector>

namespace ZelCounter {

namespace {

using Interface::EthIntfStatistics;
using Interface::FieldGroup;
using Interface::wrapWindow;

// A wrap leads from the top 2^48 of the 64-bit range to the bottom. The bounds are deliberately not symmetrical: the
// old value lies strictly above the first, the new value strictly below the second, which is 2^48 - 1.
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

// Errors don't come in numbers that could wrap 64 bits: any fall is an upset. A value with the top bit set is
// negative to this test, deliberately, and counts as 0.
Step errorStep(U64 oldValue, U64 newValue) {
   const U64 from = zeroIfNegative(oldValue);
   const U64 to = zeroIfNegative(newValue);
   return to < from || to - from >= wrapWindow ? Step::upset : Step::normal;
}

using Silo::WordPair;

// Gathers the bits that are set in any step and any value, two fields at once. In nearly every reading the high bits
// stay clear, since each counter stayed or rose within the window and below the top of the range. A fall sets them, as
// its difference modulo 2^64 is huge.
struct Suspicion {
   WordPair steps{};
   WordPair values{};

   void add(WordPair oldValues, WordPair newValues) {
      steps |= newValues - oldValues;
      values |= newValues | oldValues;
   }
   // Never true of a reading with a wrap or an upset; false also of some good ones, which the closer look then passes.
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
// Every port goes through here on every pass, so fields go through the vector registers in pairs and are looked at
// while they are there. It is a loop over a table since compilers, given the lines one by one, put off the looking and
// spill.
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
   // This chip family counts queues elsewhere; the record's blocks for them stay 0.
   body.outQueuePkts = {};
   body.outQueueDiscards = {};
   return suspicion.isAllNormal();
}

// The same from a snapshot that has only the first counters, as one that was set by hand may be: the others read 0.
bool fillFromPart(EthIntfStatistics& body, std::span<const U64> raw, const EthIntfStatistics& previous) {
   bf_rmon_counter_array_t all{};
   std::ranges::copy(raw, std::begin(all));
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

void MacAccounting::beginAt(const IntfCounters& snapshot, VexTypes::IntfCounters& previous) {
   EthIntfStatistics& body = previous.refill();
   fillFromPart(body, snapshot.counters(), body);
}

namespace {

// The wraps and upsets of one step, as events. A few counters are told one by one, more of them at once are one event.
// Where all that had counted fell, the port's counters began again.
class StepEvents {
 public:
   explicit StepEvents(const Pelt::IntfId& intf) : intf_(intf) {}
   StepEvents(const StepEvents&) = delete;
   StepEvents& operator=(const StepEvents&) = delete;
   ~StepEvents() {
      tell(wraps_, Kiln::EventKind::wrap);
      const bool isReset = !hasStanding_ && std::ranges::all_of(upsets_, [](const auto& one) {
         return one.after < one.before;
      });
      tell(upsets_, isReset ? Kiln::EventKind::reset : Kiln::EventKind::upset);
   }
   void stands(U64 value) { hasStanding_ |= value != 0; }
   void add(const MacAccounting::Event& event, bool isWrap) { (isWrap ? wraps_ : upsets_).push_back(event); }

 private:
   static constexpr std::size_t mostToTell = 3;

   void tell(const std::vector<MacAccounting::Event>& events, const char* kind) const {
      const bool isOne = events.size() > mostToTell || kind == Kiln::EventKind::reset;
      for (const MacAccounting::Event& event : events) {
         const bool isUpset = kind == Kiln::EventKind::upset;
         Kiln::EventLog::instance().record(
              {.kind = kind,
               .where = intf_.text(),
               .what = event.counter,
               .text = isUpset ? Vex::flippedBits(event.before, event.after) : "",
               .hasValues = true,
               .before = event.before,
               .after = event.after,
               .others = isOne ? events.size() - 1 : 0});
         if (isOne) {
            break;
         }
      }
   }

   const Pelt::IntfId& intf_;
   bool hasStanding_ = false; // some counter went on from what it had counted
   std::vector<MacAccounting::Event> wraps_;
   std::vector<MacAccounting::Event> upsets_;
};

} // namespace

void MacAccounting::checkMacCountersOverflow(const Pelt::IntfId& intf,
                                             const Kiln::Ptr<VexTypes::IntfCounters>& record,
                                             const Kiln::Ptr<VexTypes::IntfCounters>& previous) {
   bool wrapSeen = false;
   bool seuSeen = false;
   StepEvents told(intf);
   const EthIntfStatistics& reading = record->statistics();
   for (std::size_t i = 0; i < EthIntfStatistics::fieldCount; ++i) {
      const U64 newValue = Interface::word(reading, i);
      const U64 oldValue = Interface::word(previous->statistics(), i);
      const bool isTraffic = Interface::ethIntfFields[i].group == FieldGroup::wrapChecked;
      const Step step = isTraffic ? trafficStep(oldValue, newValue) : errorStep(oldValue, newValue);
      if (step == Step::normal) {
         told.stands(oldValue);
         continue;
      }
      const Event event{intf, Interface::ethIntfFields[i].name, oldValue, newValue,
                        Kiln::System::currentTime()};
      KILN_RINGLOG(intf << ": " << event.counter << (step == Step::wrap ? " wrapped" : " was upset")
                        << " from " << oldValue << " to " << newValue);
      told.add(event, step == Step::wrap);
      if (step == Step::wrap) {
         lastWrap_ = event;
         overflowCountInc(1);
         wrapSeen = true;
      } else {
         lastUpset_ = event;
         seuCountInc(1);
         // The new value may be the flawed one or the first good one after it: either way the difference is 0.
         previous->absorb(i, newValue);
         seuSeen = true;
      }
   }
   // Once a reading, however many of its counters were hit. Only a wrap goes to the operator: an upset is absorbed
   // whole.
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

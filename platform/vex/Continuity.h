// The one rule of what a count means across whatever happens to the hardware behind it. Every count that is published
// or shown goes through here: it takes readings, of values and of the source that counted them.
//
// 1. A source is what counts on its own in hardware: a place of a block of a device, within one life of the chip. Each
//    programming of a table entry is a source of its own. Values of two sources are never subtracted from each other,
//    with one exception: a place is compared over the lives of its chip, whose hardware may have been kept.
// 2. A step leads from the last reading of a source to the next, never from a clear. For a port's MAC counters the
//    vetting decides: a wrap counts modulo 2^64, an upset adds nothing. Elsewhere a rise of 2^48 or more adds nothing. A
//    fall is a reset of these values alone, which fall together: each counts whole what was counted since. Only if the
//    values fit on to those before a rise of 2^48 or more, it was a flipped bit that has been mended.
// 3. The first reading of a source counts whole if its entry was programmed while the count was there, or if nobody was
//    counted at that place in this life of the chip. Otherwise it is only compared with. A count that goes on at another
//    place begins with a comparison, too.
// 4. An upset, a wrap, a reset, and the end or exchange of a source mark the record with their time; an added one doesn't.
// 5. Totals never jump and never step back within a record's creation time. They live here, and the shared table has a
//    copy: what could not be written comes with the next write. An interface that leaves takes record, clear and queues
//    along, and has a new record when it comes back.
// 6. A clear notes the totals and the time, and changes no total. Only the end of the record undoes it.
// 7. A reading that failed changes nothing.
#pragma once

#include "kiln/Time.h"
#include "silo/Record.h"
#include "vex/PublishedRecords.h"

#include <algorithm>
#include <array>
#include <span>
#include <utility>
#include <vector>

namespace Vex {

struct Source {
   enum class Block : U8 { none, mac, queue, l2Domain, path };

   U8 device = 0;
   Block block = Block::none;
   U16 place = 0;          // in the block: a device port, a VLAN, or a pipe
   U32 life = 0;           // of the chip: rises whenever one is added
   U32 programming = 0;    // of a table entry, a number of its own; 0 for what is always there
   bool isResumed = false; // the entry counted on for nobody before: its first reading is only compared with

   bool isKnown() const { return block != Block::none; }
   bool isAt(const Source& other) const {
      return device == other.device && block == other.block && place == other.place;
   }
   bool operator==(const Source&) const = default;
};

// What the next reading counts.
enum class Begin : U8 {
   step,       // the step from the last one
   whole,      // all of it
   fromZero,   // the step from zero: the entry was just programmed
   nothing,    // it is only compared with
   difference, // the step from the last one of the chip's life before
};

// Which source a count has followed last.
class SourceTrail {
 public:
   const Source& source() const { return source_; }
   // An earlier process counted on: the first source that comes is taken for its.
   void keptIs(Begin first) { kept_ = first; }

   // The next reading is of this source. `isCounted` is kept with the source and says whether anybody was ever counted
   // there; it is set. `isNewer`: the source was made after the count began.
   Begin next(const Source& source, bool& isCounted, bool isNewer = false) {
      return source == source_ ? Begin::step : exchange(source, isCounted, isNewer);
   }
   // Whether the source that came last took another's place.
   bool isExchanged() const { return isExchanged_; }
   void exchangedDel() { isExchanged_ = false; }

 private:
   Begin exchange(const Source& source, bool& isCounted, bool isNewer) {
      const Source before = std::exchange(source_, source);
      const bool wasCounted = std::exchange(isCounted, true);
      const Begin kept = std::exchange(kept_, Begin::step);
      isExchanged_ = before.isKnown();
      const bool isSamePlace = isExchanged_ && before.isAt(source);
      if (isSamePlace && before.programming == source.programming) {
         return Begin::difference;
      }
      if (!isExchanged_ && kept != Begin::step) {
         return kept;
      }
      if (source.programming != 0) {
         // All that the entry counted belongs to whoever was there when it was programmed.
         const bool isOwn = isNewer || isSamePlace || !wasCounted;
         return isOwn && !source.isResumed ? Begin::fromZero : Begin::nothing;
      }
      return wasCounted || isExchanged_ ? Begin::nothing : Begin::whole;
   }

   Source source_;
   Begin kept_ = Begin::step;
   bool isExchanged_ = false;
};

struct Break {
   std::size_t field = 0; // the first one that did not go on as it may
   U64 before = 0;
   U64 after = 0;

   bool isFall() const { return after < before; }
};

template <std::size_t n>
struct Step { // what a reading adds to the totals
   std::array<U64, n> counts{};
   std::array<bool, n> isAbsorbed{}; // the step was implausible, and adds nothing
   bool isMarked = false;            // the continuity is broken
   Break broken{};                   // how, if it is
};

// Takes values that fall together from reading to reading.
template <std::size_t n>
class Meter {
 public:
   using Values = std::array<U64, n>;

   Step<n> read(const Values& reading, Begin begin = Begin::step) {
      if (begin == Begin::nothing || begin == Begin::whole) {
         last_ = reading;
         flip_ = {};
         // However much it is: the hardware may have counted for years.
         return {begin == Begin::whole ? reading : Values{}};
      }
      if (begin == Begin::fromZero) {
         zeroed();
      }
      if (isPlain(reading)) {
         return {takePlain(reading)};
      }
      const Step<n> step = takeBroken(reading);
      last_ = reading;
      return step;
   }
   // Whether the step to the reading is one as nearly all are: then takePlain() does what read() does, in less time.
   bool isPlain(const Values& reading) const {
      bool isPlain = true;
      for (std::size_t i = 0; i < n; ++i) {
         isPlain &= reading[i] >= last_[i] && reading[i] - last_[i] < Interface::wrapWindow;
      }
      return isPlain;
   }
   Values takePlain(const Values& reading) {
      Values counts;
      for (std::size_t i = 0; i < n; ++i) {
         counts[i] = reading[i] - last_[i];
      }
      last_ = reading;
      return counts;
   }
   const Values& last() const { return last_; }
   // The hardware was set to zero.
   void zeroed() { *this = {}; }
   // By how much implausible rises have lifted the last reading. A later process goes on from both.
   const Values& lift() const { return flip_; }
   void continueFrom(const Values& last, const Values& lift) {
      last_ = last;
      flip_ = lift;
   }

 private:
   Break breakAt(const Values& reading) const {
      std::size_t field = 0;
      while (field + 1 < n && reading[field] >= last_[field] &&
             reading[field] - last_[field] < Interface::wrapWindow) {
         ++field;
      }
      return {field, last_[field], reading[field]};
   }
   Step<n> takeBroken(const Values& reading) {
      const Break broken = breakAt(reading);
      bool hasFallen = false;
      bool isMended = true;
      for (std::size_t i = 0; i < n; ++i) {
         hasFallen |= reading[i] < last_[i];
         isMended &= reading[i] >= last_[i] - flip_[i]; // another value may still be flipped
      }
      for (std::size_t i = 0; i < n && hasFallen; ++i) {
         last_[i] = isMended ? last_[i] - flip_[i] : 0;
         flip_[i] = 0;
      }
      Step<n> step;
      step.isMarked = true;
      step.broken = broken;
      for (std::size_t i = 0; i < n; ++i) {
         const U64 count = reading[i] - last_[i];
         step.isAbsorbed[i] = count >= Interface::wrapWindow;
         step.counts[i] = step.isAbsorbed[i] ? 0 : count;
         flip_[i] += step.isAbsorbed[i] ? count : 0;
      }
      return step;
   }
   Values last_{};
   Values flip_{};
};

// A count that each device adds to, by table entries of packets and bytes.
template <std::size_t entries>
class DevicesMeter {
 public:
   struct Reading {
      Source source;
      bool* isCounted = nullptr; // see SourceTrail::next
      std::array<std::array<U64, 2>, entries> values{};
   };
   struct Sum {
      std::array<Step<2>, entries> steps{};
      bool isMarked = false;
      bool isExchanged = false; // so that the sum makes no rate
   };

   // One reading of each device that counts now.
   Sum read(std::span<const Reading> readings) {
      Sum sum;
      const auto isGone = [&](const Device& device) {
         const bool isThere = std::any_of(readings.begin(), readings.end(), [&](const Reading& reading) {
            return reading.source.device == device.sources.source().device;
         });
         sum.isMarked |= !isThere && device.sources.source().isKnown();
         return !isThere;
      };
      std::erase_if(devices_, isGone);
      for (std::size_t at = 0; at < readings.size(); ++at) {
         Device& device = deviceOf(readings[at].source, at);
         const Source& source = readings[at].source;
         const Begin begin = device.sources.next(source, *readings[at].isCounted, source.place == place_);
         sum.isExchanged |= device.sources.isExchanged();
         device.sources.exchangedDel();
         for (std::size_t entry = 0; entry < entries; ++entry) {
            add(sum.steps[entry], device.meters[entry].read(readings[at].values[entry], begin));
         }
      }
      if (!readings.empty() && readings[0].source.isKnown()) {
         place_ = readings[0].source.place;
      }
      sum.isMarked |= sum.isExchanged;
      for (const Step<2>& step : sum.steps) {
         sum.isMarked |= step.isMarked;
      }
      return sum;
   }

 private:
   struct Device {
      SourceTrail sources;
      std::array<Meter<2>, entries> meters;
   };

   // Devices nearly always come in the same order.
   Device& deviceOf(const Source& source, std::size_t at) {
      if (at < devices_.size() && devices_[at].sources.source().device == source.device) {
         return devices_[at];
      }
      const auto found = std::find_if(devices_.begin(), devices_.end(), [&](const Device& device) {
         return device.sources.source().device == source.device;
      });
      return found != devices_.end() ? *found : devices_.emplace_back();
   }
   static void add(Step<2>& sum, const Step<2>& step) {
      for (std::size_t i = 0; i < 2; ++i) {
         sum.counts[i] += step.counts[i];
         sum.isAbsorbed[i] |= step.isAbsorbed[i];
      }
      sum.broken = step.isMarked ? step.broken : sum.broken;
      sum.isMarked |= step.isMarked;
   }

   std::vector<Device> devices_;
   U32 place_ = ~U32{0}; // where it counts: an entry that comes there was programmed since the last reading
};

// Seconds between two samples; 0 if that is not known or no time has passed.
inline double intervalBetween(double previous, double now) {
   return now > previous && previous != Silo::unknownSampleTime ? now - previous : 0;
}

// The record without what belongs to its last step.
template <class Record>
void dropStep(Record& record) {
   record.deltas = {};
   record.interval = 0;
   if constexpr (requires { record.isAbsorbed; }) {
      record.isAbsorbed = {};
   } else {
      record.absorbed = 0;
   }
}

// A record begins: everything it will count comes from now on.
template <class Record>
void beginRecord(Record& record, double now) {
   record = {};
   record.createdTime = now;
   record.createdUnixTime = Kiln::System::unixTime();
   record.discontinuityTime = now;
}

// Goes on with a record that an earlier process left. One that was damaged, or is of another clock, has no sample time:
// then its other times mean nothing either. False: it had counted nothing, and begins anew.
template <class Record>
bool continueRecord(Record& record, double sampleTime, double now) {
   if constexpr (requires { record.deltas; }) {
      dropStep(record);
   }
   if (sampleTime != Silo::unknownSampleTime) {
      return true;
   }
   if (record.totals == decltype(record.totals){}) {
      beginRecord(record, now);
      return false;
   }
   record.discontinuityTime = now;
   const double age = std::max(Kiln::System::unixTime() - record.createdUnixTime, 0.0);
   record.createdTime = record.createdUnixTime != 0 ? now - age : 0;
   return true;
}

// The end of a step. A source that took another's place makes no rate.
template <class Counters, class Record>
void closeStep(Counters& previous, Record& next, bool isMarked, bool isExchanged, double now) {
   Record& last = previous.record();
   if (isMarked) {
      last.discontinuityTime = now;
   }
   next.discontinuityTime = last.discontinuityTime;
   next.createdTime = last.createdTime;
   next.createdUnixTime = last.createdUnixTime;
   next.suspects = last.suspects;
   next.speed = last.speed;
   next.interval = isExchanged ? 0 : intervalBetween(previous.sampleTime(), now);
   previous.sources().exchangedDel();
   previous.sampleTimeIs(now);
}

// One step of a vetted record. `next` comes with a new reading and gets its totals, deltas, interval and times.
// `previous` is moved on to that reading, its totals and its times; it keeps nothing of the step itself. A field that
// was absorbed makes no step. Everything is modulo 2^64. True if nothing broke the continuity. `flip`: the last one that
// was absorbed here, and not by the vetting.
template <class Counters, class Record>
bool takeVettedStep(Counters& previous, Record& next, double now, Break& flip) {
   constexpr const auto& fields = Interface::fieldsOf<typename Record::Statistics>();
   Record& last = previous.record();
   // Nearly always every step counts as it is. A step that may not leaves a high bit in one of these, so that one test
   // at the end replaces one per field.
   U64 steps = 0;
   U64 falls = 0;
   for (std::size_t i = 0; i < fields.size(); ++i) {
      const U64 from = Interface::word(last.reading, i);
      const U64 to = Interface::word(next.reading, i);
      // A small step forward over the top of the range is a wrap; the top bit then goes from 1 to 0. Bits, not
      // branches, so that the loop runs in vector registers.
      steps |= to - from;
      falls |= from & ~to;
      next.deltas[i] = to - from;
      const U64 total = last.totals[i] + (to - from);
      next.totals[i] = total;
      last.totals[i] = total;
      Interface::wordIs(last.reading, i, to);
   }
   const bool isExchanged = previous.sources().isExchanged();
   const bool isContinuous =
        !previous.hasAbsorbed() && !isExchanged && steps < Interface::wrapWindow && falls < Interface::topBit;
   next.isAbsorbed = {};
   for (std::size_t i = 0; !isContinuous && i < fields.size(); ++i) {
      // The vetting reads a negative value of an upset-only counter as 0, and so lets the step to a flipped top bit
      // pass.
      const bool isFlip =
           fields[i].group == Interface::FieldGroup::upsetOnly && next.deltas[i] >= Interface::wrapWindow;
      if (isFlip && !previous.isAbsorbed(i)) {
         const U64 to = Interface::word(next.reading, i);
         flip = {i, to - next.deltas[i], to};
      }
      if (previous.isAbsorbed(i) || isFlip) {
         next.isAbsorbed[i] = 1;
         last.totals[i] -= next.deltas[i];
         next.totals[i] = last.totals[i];
         next.deltas[i] = 0;
      }
   }
   closeStep(previous, next, !isContinuous, isExchanged, now);
   return isContinuous;
}

// Counts by place, as a chip's views show them. They outlive the chip, so that a clear holds when it comes back.
// `n` values of a place fall together. Grows with the places that are read; others read 0.
template <std::size_t n>
class ShownCounts {
 public:
   void read(std::size_t place, U32 life, const std::array<U64, n>& reading) {
      if (place >= counts_.size()) {
         counts_.resize(place + 1);
      }
      Count& count = counts_[place];
      const Begin begin = count.isLeft ? Begin::nothing : count.life == 0 ? Begin::whole : Begin::step;
      count.life = life;
      count.isLeft = false;
      const Step<n> step = count.meter.read(reading, begin);
      for (std::size_t i = 0; i < n; ++i) {
         count.totals[i] += step.counts[i];
      }
   }
   U64 sinceClear(std::size_t place, std::size_t value = 0) const {
      return isRead(place) ? counts_[place].totals[value] - counts_[place].cleared[value] : 0;
   }
   bool isRead(std::size_t place) const { return place < counts_.size() && counts_[place].life != 0; }

   void clear() {
      for (Count& count : counts_) {
         count.cleared = count.totals;
      }
   }
   // Who was counted has left: whoever comes next begins with a comparison.
   void leave() {
      for (Count& count : counts_) {
         const bool isLeft = count.life != 0;
         count = {};
         count.isLeft = isLeft;
      }
   }
   // The hardware was set to zero, by somebody who meant to clear.
   void zeroed() {
      clear();
      for (Count& count : counts_) {
         count.meter.zeroed();
      }
   }

 private:
   struct Count {
      Meter<n> meter;
      std::array<U64, n> totals{};
      std::array<U64, n> cleared{};
      U32 life = 0; // of the chip when it was read last; 0: never
      bool isLeft = false;
   };
   std::vector<Count> counts_;
};

} // namespace Vex

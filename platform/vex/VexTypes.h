// The forwarding layer's records, as they go between its reactors and its helpers.
#pragma once

#include "kiln/Accessors.h"
#include "silo/Prefetch.h"
#include "silo/Record.h"
#include "vex/Continuity.h"
#include "vex/PublishedRecords.h"
#include "zel/Pelt.h"

namespace VexTypes {

// The kinds of counters that updateCounters takes. The numbers are fixed.
enum class CounterType : U32 {
   port = 1,     // a port's MAC counters
   vlanIntf = 3, // a VLAN interface's counters
};

// The counters of one interface: a published record in the making. A helper fills or rewrites the statistics, which are
// the record's reading; the rest is the forwarding layer's. Activity thread.
template <class Record>
class CountersOf : public Kiln::PtrInterface {
 public:
   using Statistics = typename Record::Statistics;

   const Statistics& statistics() const { return record_.reading; }
   void statisticsIs(const Statistics& statistics) { refill() = statistics; }
   // The statistics, for writing all of them in place.
   Statistics& refill() {
      isFilled_ = true;
      return record_.reading;
   }
   // Whether statistics were written since this was last set to false: a helper leaves the record of an interface that
   // it does not know alone.
   bool isFilled() const { return isFilled_; }
   void isFilledIs(bool filled) { isFilled_ = filled; }

   // In a previous record: gives a field its new value, because its step was an upset, and remembers it.
   void absorb(std::size_t field, U64 value) {
      Interface::wordIs(record_.reading, field, value);
      isAbsorbed_[field] = true;
      hasAbsorbed_ = true;
   }
   bool hasAbsorbed() const { return hasAbsorbed_; }
   bool isAbsorbed(std::size_t field) const { return isAbsorbed_[field]; }
   void absorbedDelAll() {
      if (hasAbsorbed_) {
         isAbsorbed_ = {};
         hasAbsorbed_ = false;
      }
   }

   // Of a previous record: what a step reads and writes of it, which is all but what belongs to the step itself, what the
   // reading has besides fields, and what was absorbed.
   void prefetch() const {
      const auto from = [](const void* begin, const void* end) {
         Silo::prefetch(begin, static_cast<std::size_t>(static_cast<const std::byte*>(end) -
                                                        static_cast<const std::byte*>(begin)));
      };
      from(this, reinterpret_cast<const U64*>(&record_.reading) + Record::fieldCount);
      from(&record_.totals, &record_.deltas);
      from(&record_.interval, &isAbsorbed_);
   }

   const Record& record() const { return record_; }
   Record& record() { return record_; }
   void recordIs(const Record& record) { record_ = record; }

   // Of a previous record that the forwarding layer keeps: which sources its readings were of. Any other previous record
   // is taken as it is.
   Vex::SourceTrail& sources() { return sources_; }
   KILN_ATTRIBUTE(bool, followsSources, false)
   // A helper tells the source of the next reading before it vets that; see SourceTrail::next.
   Vex::Begin sourceIs(const Vex::Source& source, bool& isCounted) {
      return followsSources() ? sources_.next(source, isCounted) : Vex::Begin::step;
   }

   // When the record was sampled, in seconds; Silo::unknownSampleTime if that is not known.
   KILN_ATTRIBUTE(double, sampleTime, Silo::unknownSampleTime)

 private:
   Record record_;
   Vex::SourceTrail sources_;
   bool hasAbsorbed_ = false;
   bool isFilled_ = false;
   std::array<bool, Record::fieldCount> isAbsorbed_{};
};

class IntfCounters : public CountersOf<Silo::Interface::IntfCounters> {};
// Octets and packets by table entry, as the continuity of the sum needs them: what came in, then what went out.
class L3IntfCounters : public CountersOf<Silo::Interface::L3IntfCounters> {
 public:
   static constexpr std::size_t inEntries = 3;
   static constexpr std::size_t outEntries = 2;
   using Meter = Vex::DevicesMeter<inEntries + outEntries>;

   // In a reading: each device's part of the statistics. A helper that can't tell leaves them alone: then the
   // statistics are taken for one device's.
   const std::vector<Meter::Reading>& parts() const { return parts_; }
   bool hasParts() const { return hasParts_; }
   std::vector<Meter::Reading>& refillParts() {
      hasParts_ = true;
      parts_.clear();
      return parts_;
   }
   void partsDel() { hasParts_ = false; }

 private:
   std::vector<Meter::Reading> parts_;
   bool hasParts_ = false;
};

// One reading of an interface's queues: only those that were reported.
class IntfQueueCounters {
 public:
   static constexpr std::size_t queueCount = Silo::Interface::IntfQueueCounters::queueCount;

   using Stats = std::array<Silo::Interface::QueueStatistics, queueCount>;

   IntfQueueCounters() = default;
   // Queue q is reported if bit q says so; the others are 0.
   IntfQueueCounters(const Stats& stats, U32 reported) : stats_(stats), reported_(reported) {}

   bool has(std::size_t queue) const { return queue < queueCount && ((reported_ >> queue) & 1) != 0; }
   U32 reported() const { return reported_; }
   const Silo::Interface::QueueStatistics& intfQueueStat(std::size_t queue) const { return stats_.at(queue); }
   // A queue above 16 is a std::out_of_range.
   void intfQueueStatIs(std::size_t queue, const Silo::Interface::QueueStatistics& stat) {
      stats_.at(queue) = stat;
      reported_ |= 1U << queue;
   }

   // What the hardware has, and the source that counted it; `isCounted` is kept with the source and says whether anybody
   // was ever counted there. Both pointers are good while the report is handed over. Without a source, what is reported
   // stands for it.
   struct Readings {
      Vex::Source source;
      bool* isCounted = nullptr;
      const Stats* stats = nullptr;
   };
   const Readings& readings() const { return readings_; }
   Readings& readings() { return readings_; }

   // When the chip had these counts, in seconds; a clear is not a new sample. Silo::unknownSampleTime if that is not
   // known.
   KILN_ATTRIBUTE(double, sampleTime, Silo::unknownSampleTime)

 private:
   Stats stats_{};
   Readings readings_;
   U32 reported_ = 0;
};

enum class QueueType : U8 { none, unicast, multicast };

// The type of each of an interface's queues.
class IntfQueueType {
 public:
   QueueType queueType(std::size_t queue) const { return types_.at(queue); }
   // A queue above 16 is a std::out_of_range.
   void queueTypeIs(std::size_t queue, QueueType type) { types_.at(queue) = type; }

 private:
   std::array<QueueType, IntfQueueCounters::queueCount> types_{};
};

} // namespace VexTypes

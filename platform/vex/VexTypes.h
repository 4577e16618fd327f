// The forwarding layer's records, as they go between its reactors and its helpers.
#pragma once

#include "kiln/Accessors.h"
#include "silo/Record.h"
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

   const Record& record() const { return record_; }
   Record& record() { return record_; }
   void recordIs(const Record& record) { record_ = record; }

   // When the record was sampled, in seconds; Silo::unknownSampleTime if that is not known.
   KILN_ATTRIBUTE(double, sampleTime, Silo::unknownSampleTime)

 private:
   Record record_;
   std::array<bool, Record::fieldCount> isAbsorbed_{};
   bool hasAbsorbed_ = false;
   bool isFilled_ = false;
};

class IntfCounters : public CountersOf<Silo::Interface::IntfCounters> {};
class L3IntfCounters : public CountersOf<Silo::Interface::L3IntfCounters> {};

// One reading of an interface's queues: only those that were reported.
class IntfQueueCounters {
 public:
   static constexpr std::size_t queueCount = Silo::Interface::IntfQueueCounters::queueCount;

   bool has(std::size_t queue) const { return queue < queueCount && ((reported_ >> queue) & 1) != 0; }
   const Silo::Interface::QueueStatistics& intfQueueStat(std::size_t queue) const { return stats_.at(queue); }
   // A queue above 16 is a std::out_of_range.
   void intfQueueStatIs(std::size_t queue, const Silo::Interface::QueueStatistics& stat) {
      stats_.at(queue) = stat;
      reported_ |= 1U << queue;
   }

   // When the chip had these counts, in seconds; a clear is not a new sample. Silo::unknownSampleTime if that is not
   // known.
   KILN_ATTRIBUTE(double, sampleTime, Silo::unknownSampleTime)
   // Earlier reports are of another port or chip and cannot be compared with this one.
   KILN_ATTRIBUTE(bool, beginsAnew, false)

 private:
   std::array<Silo::Interface::QueueStatistics, queueCount> stats_{};
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

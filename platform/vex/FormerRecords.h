// The records as the last release published them, and how each becomes one of today's: for the writer of a table that an
// upgraded agent finds. What these records do not say is not known, so it stays 0.
#pragma once

#include "vex/PublishedRecords.h"

namespace Silo::Interface {

template <class Statistics_>
struct FormerCounterRecord {
   using Statistics = Statistics_;
   static constexpr std::size_t fieldCount = Statistics::fieldCount;

   alignas(32) Statistics reading{};
   alignas(32) std::array<U64, fieldCount> totals{};
   alignas(32) std::array<U64, fieldCount> deltas{};
   std::array<U8, (fieldCount + 7) / 8 * 8> isAbsorbed{};
   double interval = 0;
   double discontinuityTime = 0;
   U64 suspects = 0;

   template <class Record>
   Record upgradedTo() const {
      Record record;
      record.reading = reading;
      record.totals = totals;
      record.deltas = deltas;
      record.isAbsorbed = isAbsorbed;
      record.interval = interval;
      record.discontinuityTime = discontinuityTime;
      record.suspects = suspects;
      return record;
   }
};

struct FormerIntfCounters : FormerCounterRecord<::Interface::EthIntfStatistics> {
   static constexpr std::string_view layoutName = IntfCounters::layoutName;
   static constexpr U32 layoutVersion = 2;
};

struct FormerL3IntfCounters : FormerCounterRecord<::Interface::L3IntfStatistics> {
   static constexpr std::string_view layoutName = L3IntfCounters::layoutName;
   static constexpr U32 layoutVersion = 1;
};

struct FormerIntfQueueCounters {
   static constexpr std::string_view layoutName = IntfQueueCounters::layoutName;
   static constexpr U32 layoutVersion = 1;
   static constexpr std::size_t queueCount = 17;

   std::array<QueueStatistics, queueCount> totals{};
   std::array<QueueStatistics, queueCount> deltas{};
   double interval = 0;
   U32 present = 0;
   U32 reported = 0;
};

struct FormerNatCounter {
   static constexpr std::string_view layoutName = NatCounter::layoutName;
   static constexpr U32 layoutVersion = 1;

   std::array<char, 64> intfId{};
   S64 creationTime = 0;
   U64 packets = 0;
   U64 bytes = 0;
   double lastUpdate = 0;
};

// A table finds its former records by these.
inline IntfCounters upgraded(const FormerIntfCounters& former) {
   return former.upgradedTo<IntfCounters>();
}

inline L3IntfCounters upgraded(const FormerL3IntfCounters& former) {
   return former.upgradedTo<L3IntfCounters>();
}

inline IntfQueueCounters upgraded(const FormerIntfQueueCounters& former) {
   IntfQueueCounters record;
   record.totals = former.totals;
   record.deltas = former.deltas;
   record.interval = former.interval;
   record.present = former.present;
   record.reported = former.reported;
   return record;
}

// There were no totals: what the chips had counted was all that there was.
inline NatCounter upgraded(const FormerNatCounter& former) {
   NatCounter record;
   record.intfId = former.intfId;
   record.creationTime = former.creationTime;
   record.packets = former.packets;
   record.bytes = former.bytes;
   record.lastUpdate = former.lastUpdate;
   record.totalPackets = former.packets;
   record.totalBytes = former.bytes;
   record.createdTime = static_cast<double>(former.creationTime);
   return record;
}

} // namespace Silo::Interface

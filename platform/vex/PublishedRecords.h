// The records that other processes read, and the names of their tables. A reader needs only this header and
// silo/TableReader.h. docs/published-records.md says what each field means.
#pragma once

#include "vex/Statistics.h"

#include <array>
#include <optional>
#include <string_view>

namespace Silo::Interface {

// The prefix of an agent's shared memory objects, unless it is told another place for its tables.
constexpr const char* defaultTablePrefix = "zelagent";

// Tables, by interface name.
namespace TableName {
inline constexpr const char* intfCounters = "IntfCounters";
inline constexpr const char* intfClearCounters = "IntfClearCounters";
inline constexpr const char* intfQueueCounters = "IntfQueueCounters";
inline constexpr const char* intfClearQueueCounters = "IntfClearQueueCounters";
inline constexpr const char* vlanIntfCounters = "VlanIntfCounters";
inline constexpr const char* vlanIntfClearCounters = "VlanIntfClearCounters";
inline constexpr const char* subIntfCounters = "SubIntfCounters";
inline constexpr const char* subIntfClearCounters = "SubIntfClearCounters";
inline constexpr const char* intfNatCounters = "IntfNatCounters";

inline constexpr std::array all{intfCounters,           intfClearCounters,    intfQueueCounters,
                                intfClearQueueCounters, vlanIntfCounters,     vlanIntfClearCounters,
                                subIntfCounters,        subIntfClearCounters, intfNatCounters};
} // namespace TableName

// The counters of one interface. Arrays are indexed like fieldsOf<Statistics>(). In a clear table: reading, totals and
// times as they were when the interface was cleared; what belongs to one step (deltas, interval) is zero.
template <class Statistics_>
struct CounterRecord {
   using Statistics = Statistics_;
   static constexpr std::size_t fieldCount = Statistics::fieldCount;

   // Aligned, so that the wide loads and stores of a step do not cross cache lines.
   alignas(32) Statistics reading{};                 // as the chip has it
   alignas(32) std::array<U64, fieldCount> totals{}; // the sum of all deltas: never jumps, never steps back
   alignas(32) std::array<U64, fieldCount> deltas{}; // of the last step
   // 1: the last step was an upset and has neither delta nor rate. Filled up to whole words.
   std::array<U8, (fieldCount + 7) / 8 * 8> isAbsorbed{};
   double interval = 0;          // seconds that the last step took; 0: not known
   double discontinuityTime = 0; // when continuity was last broken, by the table's clock; 0: never
   U64 suspects = 0;             // counts steps that the port's speed does not allow
   double createdTime = 0;       // when it began to count, by the table's clock; 0: not known
   double createdUnixTime = 0;   // the same in seconds since 1970, UTC
   U64 speed = 0;                // of the port, bit/s; 0: not known

   // The rate of a field in the last step, per second.
   std::optional<double> rate(std::size_t field) const {
      if (interval <= 0 || isAbsorbed[field] != 0) {
         return std::nullopt;
      }
      return static_cast<double>(deltas[field]) / interval;
   }
};

struct IntfCounters : CounterRecord<::Interface::EthIntfStatistics> {
   static constexpr std::string_view layoutName = "IntfCounters";
   static constexpr U32 layoutVersion = 3;
};

struct L3IntfCounters : CounterRecord<::Interface::L3IntfStatistics> {
   static constexpr std::string_view layoutName = "L3IntfCounters";
   static constexpr U32 layoutVersion = 2;
};

struct QueueStatistics {
   U64 packets = 0;
   U64 bytes = 0;
   U64 drops = 0; // packets

   bool operator==(const QueueStatistics&) const = default;
};

// The queues of one interface, by queue index.
struct IntfQueueCounters {
   static constexpr std::string_view layoutName = "IntfQueueCounters";
   static constexpr U32 layoutVersion = 2;
   static constexpr std::size_t queueCount = 17;

   std::array<QueueStatistics, queueCount> totals{}; // never step back
   std::array<QueueStatistics, queueCount> deltas{}; // of the last report
   double interval = 0;                              // seconds since the report before; 0: not known
   U32 present = 0;                                  // bit q: the interface has queue q
   U32 reported = 0;                                 // bit q: and it was read at least once
   U32 absorbed = 0;             // bit q: the last step of queue q was an upset, and has no rate
   U32 unused = 0;               // fills up a word
   double discontinuityTime = 0; // as in an interface's record
   double createdTime = 0;       // the same
   double createdUnixTime = 0;   // the same

   bool has(std::size_t queue) const { return queue < queueCount && ((present >> queue) & 1) != 0; }
   // Whether its counts were ever read.
   bool isRead(std::size_t queue) const {
      return ((reported >> queue) & 1) != 0 || totals[queue] != QueueStatistics{};
   }
};

// What source NAT translated on an L3 interface.
struct NatCounter {
   static constexpr std::string_view layoutName = "NatCounter";
   static constexpr U32 layoutVersion = 2;

   std::array<char, 64> intfId{}; // NUL-terminated
   S64 creationTime = 0;          // monotonic clock, whole seconds
   U64 packets = 0;               // readings: what the chips have now
   U64 bytes = 0;
   double lastUpdate = 0; // seconds, Kiln::System::currentTime(); 0: never read
   U64 totalPackets = 0;  // never jump, never step back
   U64 totalBytes = 0;
   double discontinuityTime = 0; // as in an interface's record
   double createdTime = 0;       // the same
   double createdUnixTime = 0;   // the same

   bool isRead() const { return lastUpdate != 0 || totalPackets != 0; }
};

} // namespace Silo::Interface

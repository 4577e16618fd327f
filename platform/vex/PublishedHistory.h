// The flight recorder's part of what other processes read: the history of ports and queues, and the events. A reader needs
// only this header, silo/HistoryReader.h and silo/TableReader.h. docs/flight-recorder.md says what it all means.
#pragma once

#include "kiln/Types.h"
#include "silo/Record.h"

#include <array>
#include <string>
#include <string_view>

namespace Silo::Interface {

namespace TableName {
inline constexpr const char* intfHistory = "IntfHistory";
inline constexpr const char* intfQueueHistory = "IntfQueueHistory";
inline constexpr const char* events = "Events";
} // namespace TableName

// The values of a port's samples: totals, by field. The key is the interface's name.
struct IntfHistory {
   enum Field : std::size_t {
      inOctets,
      outOctets,
      inPkts,
      outPkts,
      inErrors,
      outErrors,
      inDiscards,
      outDiscards,
      outQueueDrops, // packets, of all its queues
   };
   static constexpr std::array<std::string_view, 9> fieldNames{
        "in-octets",  "out-octets",  "in-pkts",      "out-pkts",       "in-errors",
        "out-errors", "in-discards", "out-discards", "out-queue-drops"};
   static constexpr RecordLayout layout{"IntfHistory", 1, fieldNames.size() * sizeof(U64)};
};

// The values of samples of eight queues: packets, bytes and drops of each. The key is the interface's name for queues 0 to
// 7; those from 8 and from 16 on have the name, a blank, and that number.
struct IntfQueueHistory {
   static constexpr std::size_t queuesPerRing = 8;
   static constexpr std::array<std::string_view, 3> fieldNames{"packets", "bytes", "drops"};
   // A sample is kept once in so many polling intervals.
   static constexpr unsigned intervals = 10;
   static constexpr RecordLayout layout{"IntfQueueHistory", 1,
                                        queuesPerRing* fieldNames.size() * sizeof(U64)};

   // The key of the ring with this queue.
   static std::string keyOf(std::string_view intf, std::size_t queue) {
      const std::size_t first = queue / queuesPerRing * queuesPerRing;
      return first == 0 ? std::string(intf) : std::string(intf) + " " + std::to_string(first);
   }
   static constexpr std::size_t field(std::size_t queue, std::size_t name) {
      return queue % queuesPerRing * fieldNames.size() + name;
   }
};

// Something that happened. The key is the event's place in the ring, number modulo eventLimit. Texts are filled up with at
// least one NUL.
struct Event {
   static constexpr std::string_view layoutName = "Event";
   static constexpr U32 layoutVersion = 1;

   U64 number = 0;          // counts events from 1; none comes twice
   double time = 0;         // seconds, by the table's clock; of the first, if it came again
   double unixTime = 0;     // the same in seconds since 1970, UTC
   U64 count = 0;           // how often it came
   double lastTime = 0;     // when it came last
   double lastUnixTime = 0; // the same in seconds since 1970, UTC
   U64 hasValues = 0;       // 1: before and after are a counter's values
   U64 before = 0;          // when it came last
   U64 after = 0;           // the same
   U64 others = 0;          // how many more of that kind came with it
   std::array<char, 24> kind{};
   std::array<char, 64> where{}; // an interface, a chip or a table; empty for the whole system
   std::array<char, 64> what{};  // a counter, the id of a message, or who did it
   std::array<char, 256> text{}; // for people
};
inline constexpr std::size_t eventLimit = 4096;

} // namespace Silo::Interface

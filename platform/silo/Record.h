// What a record of a shared table may be, and what comes with a record that was read.
#pragma once

#include "silo/Key.h"

#include <cstddef>
#include <cstdint>
#include <limits>
#include <string_view>
#include <type_traits>

namespace Silo {

// A record type is trivially copyable and names its layout. The version goes up with every change of its fields, so
// that a process built against another layout gets an error and not nonsense:
//
//    struct NatCounter {
//       static constexpr std::string_view layoutName = "NatCounter"; // at most 31 characters
//       static constexpr std::uint32_t layoutVersion = 1;
//       ...
//    };
template <class T>
concept RecordType = std::is_trivially_copyable_v<T> && std::is_default_constructible_v<T> && requires {
   { T::layoutName } -> std::convertible_to<std::string_view>;
   { T::layoutVersion } -> std::convertible_to<std::uint32_t>;
};

struct RecordLayout {
   static constexpr std::size_t maxNameLength = 31;

   std::string_view name;
   std::uint32_t version = 0;
   std::size_t size = 0; // bytes of one record
};

template <RecordType Record>
constexpr RecordLayout layoutOf() {
   static_assert(Record::layoutName.size() <= RecordLayout::maxNameLength);
   return {Record::layoutName, Record::layoutVersion, sizeof(Record)};
}

// The sample time of a record that was never sampled, or was sampled in another clock domain: older than anything.
inline constexpr double unknownSampleTime = -std::numeric_limits<double>::infinity();

struct RecordInfo {
   // Rises with every write of the record and never goes back within the table's life: a record that began anew goes on
   // from the highest generation in the table, and a new one from the highest of those that were removed. So in a table
   // that never lost a record it counts writes, from 1.
   std::uint64_t generation = 0;
   double sampleTime = unknownSampleTime; // seconds, in the table's clock domain
};

template <class Record>
struct Sample {
   Record record{};
   RecordInfo info;
};

enum class ReadResult {
   ok,
   absent,      // the table has no such record
   busy,        // a living writer kept changing it for as long as the reader may wait
   torn,        // a dead writer left it half-written
   corrupt,     // its checksum fails
   unavailable, // the table itself cannot be read; the reader's problem() says why
};

// For people, such as "half-written by a dead writer".
const char* text(ReadResult result);

} // namespace Silo

// The records of what a chip counts besides its ports' MACs and queues: drops by reason, classes, the stages of its
// pipes, the traffic manager, and its health. A reader needs only this header and silo/TableReader.h.
// docs/published-records.md says what each field means.
#pragma once

#include "kiln/Types.h"
#include "zl/ZlDropReasons.h"

#include <array>
#include <string_view>

namespace Silo::Interface {

namespace TableName {
// By interface name.
inline constexpr const char* intfPlaces = "IntfPlaces";
inline constexpr const char* intfDropCounters = "IntfDropCounters";
inline constexpr const char* intfPdpCounters = "IntfPdpCounters";
// By pipe: the chip's name, a colon, and the number of the logical pipe, such as "Zel0:3".
inline constexpr const char* pipeStageCounters = "PipeStageCounters";
inline constexpr const char* pipeDropCounters = "PipeDropCounters";
inline constexpr const char* pipeTmCounters = "PipeTmCounters";
// By chip name.
inline constexpr const char* chipHealth = "ChipHealth";
// One record, whose key is agentKey.
inline constexpr const char* agentHealth = "AgentHealth";

inline constexpr std::array ofChips{intfPlaces,       intfDropCounters, intfPdpCounters, pipeStageCounters,
                                    pipeDropCounters, pipeTmCounters,   chipHealth,      agentHealth};
} // namespace TableName

inline constexpr const char* agentKey = "agent";

// Where an interface's port is.
struct IntfPlace {
   static constexpr std::string_view layoutName = "IntfPlace";
   static constexpr U32 layoutVersion = 1;

   std::array<char, 64> chip{}; // its name, NUL-terminated
   U32 device = 0;              // 0 to 7
   U32 devicePort = 0;          // 0 to 455
   U64 speed = 0;               // bit/s; 0: not known
};

// Totals of places that are each read on their own, `n` values of a place at a time.
template <std::size_t places, std::size_t n>
struct PlacedCounters {
   static constexpr std::size_t placeCount = places;
   static constexpr std::size_t valueCount = n;
   using Values = std::array<U64, n>;

   std::array<Values, places> totals{};   // no clear touches them; never jump, never step back
   std::array<Values, places> readings{}; // as the chip has them; 0 of a place that was not read there yet
   // By how much flipped bits have lifted the readings, so that a later agent sees when they are mended.
   std::array<Values, places> lifts{};
   // When the chip had a place's reading, by the table's clock; 0: not yet, where the device and port below are.
   std::array<double, places> readTimes{};
   double discontinuityTime = 0; // as in an interface's record
   double createdTime = 0;       // the same
   double createdUnixTime = 0;   // the same
   U32 device = 0;               // of the chip that was read last
   U32 devicePort = 0;           // of an interface, at which it was read last; of a pipe its number
};

// Packets that a port dropped, by point and reason.
struct IntfDropCounters : PlacedCounters<ZlDrop::tables.size() * ZlDrop::reasonsPerPort, 1> {
   static constexpr std::string_view layoutName = "IntfDropCounters";
   static constexpr U32 layoutVersion = 1;

   // The texts of points and reasons are in ZlDrop::tables. What the final point counts was counted before, with its
   // reason: never add it to the others.
   static constexpr std::size_t place(ZlDrop::Point point, U32 reason) {
      return static_cast<std::size_t>(point) * ZlDrop::reasonsPerPort + reason;
   }
};

// Packets that a port received, by PDP class.
struct IntfPdpCounters : PlacedCounters<ZlPort::pdpClassesPerSlot, 1> {
   static constexpr std::string_view layoutName = "IntfPdpCounters";
   static constexpr U32 layoutVersion = 1;

   // What each class is called, NUL-terminated; empty for a class without a name. Names that share a class are joined
   // by '/'.
   std::array<std::array<char, 64>, ZlPort::pdpClassesPerSlot> classNames{};
};

// Packets by stage of a pipe's path.
struct PipeStageCounters : PlacedCounters<8, 3> {
   static constexpr std::string_view layoutName = "PipeStageCounters";
   static constexpr U32 layoutVersion = 1;

   enum Value : std::size_t { in, out, dropped };
   static constexpr std::array<const char*, placeCount> placeNames{
        "port-rx",         "parser", "ingress",         "ingress-deparser",
        "traffic-manager", "egress", "egress-deparser", "port-tx"};
};

// Packets that a pipe's match-action stages and deparsers dropped.
struct PipeDropCounters : PlacedCounters<8, 1> {
   static constexpr std::string_view layoutName = "PipeDropCounters";
   static constexpr U32 layoutVersion = 1;

   static constexpr std::array<const char*, placeCount> placeNames{"stage 0", "stage 1",          "stage 2",
                                                                   "stage 3", "ingress deparser", "stage 4",
                                                                   "stage 5", "egress deparser"};
};

// What the traffic manager counts of a pipe. The places that are levels of the buffer (isLevel) are in cells, have
// neither bytes nor totals, and are read as they are.
struct PipeTmCounters : PlacedCounters<7, 2> {
   static constexpr std::string_view layoutName = "PipeTmCounters";
   static constexpr U32 layoutVersion = 1;

   enum Value : std::size_t { packets, bytes };
   static constexpr std::array<const char*, placeCount> placeNames{
        "in from the pipe", "out to the pipe",      "dropped", "multicast copies", "cut through",
        "cells in use",     "cells of a port, peak"};
   static constexpr bool isLevel(std::size_t place) { return place >= 5; }
};

// How a chip's reads fare: the figures of `show health`. Its places count on over chips that come back and over agents;
// its readings are those of the chip's present life.
struct ChipHealth : PlacedCounters<5, 1> {
   static constexpr std::string_view layoutName = "ChipHealth";
   static constexpr U32 layoutVersion = 1;

   enum Place : std::size_t { refused, unanswered, late, wraps, upsets };
   static constexpr std::array<const char*, placeCount> placeNames{"refused", "unanswered", "late", "wraps",
                                                                   "upsets"};
   enum class Verdict : U32 { ok, degraded, silent };
   static constexpr std::array<const char*, 3> verdictNames{"ok", "degraded", "silent"};
   enum Kind : std::size_t { mac, tables, queues, trafficManager };
   static constexpr std::array<const char*, 4> kindNames{"mac", "tables", "queues", "traffic-manager"};

   Verdict verdict = Verdict::ok;
   U32 unused = 0;    // fills up a word
   double upTime = 0; // since when the chip is there, by the table's clock
   std::array<double, kindNames.size()>
        oldestReadTimes{};                       // of each kind, the oldest last good one; 0: one never came
   std::array<U64, kindNames.size()> isPolled{}; // 1: readings of the kind are made at intervals
   U64 outstanding = 0;                          // requests
   U64 pendingVlans = 0;                         // that wait for room in the chip's tables
};

// The agent as a whole.
struct AgentHealth {
   static constexpr std::string_view layoutName = "AgentHealth";
   static constexpr U32 layoutVersion = 2;
   // Upper bounds of what `holds` counts: seconds. The last count has none.
   static constexpr std::array holdBounds{10e-6, 100e-6, 1e-3, 10e-3, 100e-3};

   std::array<char, 32> version{};                 // NUL-terminated
   double startedTime = 0;                         // by the table's clock
   double startedUnixTime = 0;                     // the same in seconds since 1970, UTC
   U64 deadObjects = 0;                            // kept for completions that are due or lost
   double longestHold = 0;                         // of the activity lock, seconds; 0 in simulated time
   double longestWait = 0;                         // for it, the same
   double heldTime = 0;                            // all holds together, the same
   std::array<U64, holdBounds.size() + 1> holds{}; // by duration
};

} // namespace Silo::Interface

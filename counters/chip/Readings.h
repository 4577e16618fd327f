// When each of a chip's readings was made last, and what became of the last attempt. Views say with it how old their
// counts are, and the chip's health is judged by it.
#pragma once

#include "kiln/Accessors.h"
#include "kiln/Clock.h"

#include <array>
#include <optional>
#include <vector>

namespace ZelCounter {

// What is read in one go.
struct ReadingKey {
   enum class Kind : U8 {
      mac,            // a port's MAC counters; id is its device port
      tableSync,      // the SDK's copy of a counter table, from the hardware; id is the table's
      tableCopy,      // the library's counts, from that copy
      queues,         // a pipe's queues
      trafficManager, // one of the SDK's types of counters; id is the type
      pipeline,       // id is the stage
      mauDeparser,    // id is the place
      count
   };
   static constexpr std::size_t kinds = static_cast<std::size_t>(Kind::count);

   Kind kind = Kind::mac;
   U32 id = 0;
   U16 pipe = 0; // 65535 for all; of mac 0

   bool operator==(const ReadingKey&) const = default;
   static const char* textOf(Kind kind); // "MAC counters"
   // Whether it is read at intervals, and not as somebody asks for it.
   bool isPolled() const;
};

} // namespace ZelCounter

template <>
struct std::hash<ZelCounter::ReadingKey> {
   std::size_t operator()(const ZelCounter::ReadingKey& key) const noexcept {
      return (std::size_t{key.id} << 24) ^ (std::size_t{key.pipe} << 8) ^ static_cast<std::size_t>(key.kind);
   }
};

namespace ZelCounter {

// One reading as it stands.
struct Reading {
   double readTime = Kiln::never; // of the last good one, on the system's clock; never if there was none
   double since = Kiln::never;    // of the first attempt
   int status = 0;                // of the last attempt, the SDK's
   bool isOutstanding = false;    // accepted and not answered yet
   bool isStopped = false;        // nobody will try again
};

// What an operator has to know of a reading.
struct ReadingState {
   std::optional<double> age; // seconds since the last good one; nothing if there was none
   // Empty while all is well: the last attempt did not fail, and the last good reading is at most three periods old.
   // Else "HW access fails", "no answer", "polling stopped: ...".
   Kiln::String trouble;

   // The worse of two that one table is made of.
   ReadingState with(const ReadingState& other) const;
};

// Part of the per-chip object. Under the activity lock.
class Readings {
 public:
   Readings() { periods_.fill(2.0); } // until the pollers say otherwise

   void requested(const ReadingKey& key);
   void completed(const ReadingKey& key);
   void refused(const ReadingKey& key, int status);
   // Not asked for, since the same was refused elsewhere.
   void skipped(const ReadingKey& key, int status);
   // Of a read that answers at once.
   void attempted(const ReadingKey& key, int status);
   // After a refusal that ends the polling.
   void stopped(const ReadingKey& key);
   // What it was about is gone, or is something else now.
   void forget(const ReadingKey& key) { at(key) = {}; }
   template <class HasPort>
   void forgetPortsBut(HasPort hasPort) {
      for (std::size_t port = 0; port < mac_.size(); ++port) {
         if (!hasPort(static_cast<U32>(port))) {
            mac_[port] = {};
         }
      }
   }

   // Seconds until a reading counts as old.
   double patience(ReadingKey::Kind kind) const;
   // Seconds from one attempt to the next.
   void periodIs(ReadingKey::Kind kind, double seconds);

   // The reading as it stands; a default one if nobody ever tried.
   const Reading& reading(const ReadingKey& key) const;
   ReadingState state(const ReadingKey& key) const { return state(key.kind, reading(key)); }
   // Seconds since the oldest last good reading of a polled kind; nothing if one was never made.
   std::optional<double> age(ReadingKey::Kind kind) const;

   // Whether anything of the kind was ever asked for.
   bool isAsked(ReadingKey::Kind kind) const;
   template <class Visit>
   void forEachPolled(Visit visit) const {
      forEach([&](const ReadingKey& key, const Reading& reading) {
         if (key.isPolled() && reading.since != Kiln::never) {
            visit(key, reading);
         }
      });
   }

   // The kinds of whose polled readings all are more than three periods old: the chip does not answer them.
   std::vector<ReadingKey::Kind> silentKinds() const;
   // Whether no other kind is read from the hardware. The traffic manager's counts are the SDK's own.
   bool isSilent() const;

   U64 refusedCount() const { return refused_; }
   // Requests that were made again before their answer had come: it is late, or lost.
   U64 unansweredCount() const { return unanswered_; }

 private:
   Reading& at(const ReadingKey& key);
   // Of each polled kind, whether any reading of it is fresh; nothing of others.
   std::array<std::optional<bool>, ReadingKey::kinds> answeredKinds() const;
   bool isOld(ReadingKey::Kind kind, const Reading& reading) const;
   ReadingState state(ReadingKey::Kind kind, const Reading& reading) const;
   template <class Visit>
   void forEach(Visit visit) const {
      for (std::size_t port = 0; port < mac_.size(); ++port) {
         visit(ReadingKey{ReadingKey::Kind::mac, static_cast<U32>(port)}, mac_[port]);
      }
      for (const auto& [key, reading] : others_) {
         visit(key, reading);
      }
   }

   std::vector<Reading> mac_; // by device port: found without a search, as they are many
   Kiln::HashMap<ReadingKey, Reading> others_;
   std::array<double, ReadingKey::kinds> periods_;
   U64 refused_ = 0;
   U64 unanswered_ = 0;
};

} // namespace ZelCounter

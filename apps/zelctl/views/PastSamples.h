// The samples of a history, and what was counted between them.
#pragma once

#include "apps/zelctl/views/TimeSpan.h"
#include "silo/HistoryReader.h"
#include "silo/Store.h"
#include "vex/PublishedHistory.h"

#include <optional>
#include <string_view>
#include <vector>

namespace ZelCtl {

// The samples of one ring. Differences are those of the totals, modulo 2^64.
struct PastSamples {
   double interval = 0;                      // seconds from one to the next, as the writer is told now
   bool isOfPorts = false;                   // else of queues
   std::vector<Silo::HistorySample> samples; // oldest first

   // Whether so much time passed between two samples, or since the newest, that some are missing.
   bool isGap(double seconds) const;
   bool isAfterGap(std::size_t sample) const;
   // Whether the sample's total of the field is that of its time. Of a port whose queues were not read, their drops' is not.
   bool isRead(std::size_t sample, std::size_t field) const;
   // Whether it is known when the step to this sample was counted: no sample is missing, and both totals were read.
   bool isStepTimed(std::size_t sample, std::size_t field) const;
   // What the field counted in the step to this sample. After the beginning of a new record these are its counts from
   // zero; what the former one counted last is lost with it. None for the first sample, unless its record had just begun,
   // and if the total went back.
   std::optional<U64> step(std::size_t sample, std::size_t field) const;
   // The newest sample at or before this time; null if there is none.
   const Silo::HistorySample* at(double time) const;
   // What the field counted from that sample to the newest one. None if there is no such sample, unless the first one's
   // record had just begun, if the total went back, and if it was not read at either end.
   std::optional<U64> since(double time, std::size_t field) const;
};

// The history of all ports, or of all queues, as it is published. It asks no agent.
class PastTable {
 public:
   enum class Kind : U8 { ports, queues };

   // Throws std::runtime_error, saying why there is no history.
   PastTable(const Silo::Store& store, Kind kind);

   // The interfaces that have samples, in natural order.
   const std::vector<Kiln::String>& interfaces() const { return interfaces_; }
   // None if the interface has none. Of queues, the ring with this one. Throws std::runtime_error if the history has gone.
   PastSamples samples(const Kiln::String& intf, std::size_t queue = 0);
   // How many queues of the interface may have samples.
   std::size_t queueCount(const Kiln::String& intf) const;

   bool isWriterAlive() { return reader_.isWriterAlive(); }
   std::size_t depth() { return reader_.depth(); } // samples that a ring keeps
   double interval() { return reader_.state().pollingInterval; }
   const Kiln::String& owner() const { return owner_; } // empty if there was no choice of tables
   // The clock of its times. In simulated time, and on a clock of another boot, now is when the newest sample was taken.
   TableClock clock();

 private:
   Kind kind_;
   Kiln::String owner_;
   Silo::HistoryReader reader_;
   std::vector<Silo::Key> keys_;
   std::vector<Kiln::String> interfaces_;
};

// A counter of the history by its name, which is as in other views: "in-octets", "queue.3.drops".
struct PastCounter {
   PastTable::Kind kind = PastTable::Kind::ports;
   std::size_t queue = 0; // of a queue's counter
   std::size_t field = 0; // of the samples of its ring

   static std::optional<PastCounter> named(std::string_view name);
};

} // namespace ZelCtl

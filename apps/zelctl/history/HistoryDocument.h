// A history as a program reads it: the samples as they are.
#pragma once

#include "apps/zelctl/history/HistoryRequest.h"

namespace ZelCtl {

// Counters that are sampled together.
struct HistoryGroup {
   Kiln::String intf;
   std::vector<Kiln::String> counters;
   std::vector<std::size_t> fields; // of the counters
   PastSamples past;

   // A counter's total in one of the past's samples; none if it is an earlier one's.
   std::optional<U64> totalIn(const Silo::HistorySample& sample, std::size_t counter) const;
};

// What a request found.
struct HistoryAnswer {
   HistoryRequest request;
   TableClock clock;
   TimeSpan span;
   bool isWriterAlive = false;
   std::vector<HistoryGroup> groups; // by interface

   // Those of a group's samples that are within the span.
   std::vector<const Silo::HistorySample*> samplesOf(const HistoryGroup& group) const;
};

Kiln::String historyJson(const HistoryAnswer& answer);
Kiln::String historyCsv(const HistoryAnswer& answer);

} // namespace ZelCtl

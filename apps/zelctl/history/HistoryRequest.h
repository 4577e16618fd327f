// A `history` command, read from its words.
#pragma once

#include "apps/zelctl/history/HistorySeries.h"
#include "apps/zelctl/views/PastSamples.h"
#include "apps/zelctl/views/TimeWords.h"

#include <optional>
#include <vector>

namespace ZelCtl {

inline constexpr const char* historyCommand = "history";

// The histories of ports and of queues. The latter is opened when it is asked for.
class PastTables {
 public:
   explicit PastTables(const Silo::Store& store) : store_(store), ports_(store, PastTable::Kind::ports) {}

   PastTable& ports() { return ports_; }
   PastTable& queues();
   PastTable& of(PastTable::Kind kind) { return kind == PastTable::Kind::ports ? ports_ : queues(); }

   // The names of the counters that any of the interfaces has a history of: the ports', or the queues'.
   std::vector<Kiln::String> portCounters() const;
   std::vector<Kiln::String> queueCounters(const std::vector<Kiln::String>& intfs);

 private:
   const Silo::Store store_;
   PastTable ports_;
   std::optional<PastTable> queues_;
};

struct HistoryRequest {
   enum class Format : U8 { plot, json, csv };

   std::vector<Kiln::String> intfs;    // at least one, each once, in natural order
   std::vector<Kiln::String> counters; // at least one, each once
   HistorySeries::Values values = HistorySeries::Values::rates;
   Format format = Format::plot;
   AskedSpan span;
};

// Interfaces are named as in other views, counters by their names or a beginning that only one has; `queue.3` is short
// for all counters of that queue. Throws std::runtime_error, saying what is wrong and what was expected.
HistoryRequest parseHistoryRequest(const std::vector<Kiln::String>& words, PastTables& past,
                                   const TableClock& clock);

// The words that may follow these, the first of which is `history`; also the lists and ranges that `begun` may become.
std::vector<Kiln::String> historyCandidates(const std::vector<Kiln::String>& words, const Kiln::String& begun,
                                            const Silo::Store& store);

} // namespace ZelCtl

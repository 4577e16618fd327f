// What the agent publishes, as metrics for a collector: OpenMetrics 1.0, or Prometheus' text format.
#pragma once

#include "apps/metrics/Collectors.h"
#include "apps/metrics/Parts.h"
#include "silo/Store.h"

namespace ZelMetrics {

// What a Content-Type header says of the format.
const char* contentType(Format format);

// Reads the shared tables and asks no agent. Tables may be missing, and come and go: what can't be read is left out, and
// counted as an error of its collector. One thread at a time.
class Exposition {
 public:
   Exposition(Silo::Store store, Collectors collectors);

   // Replaces the text, whose memory is used again, by a scrape of now. Never throws for what is in the tables.
   void scrape(Format format, Kiln::String* text);
   // The same in pieces, for who does not need it whole: that of 2,048 ports has some 50 MB.
   void scrape(Format format, const TakePiece& take);

 private:
   // What the scrape expects to write, in bytes.
   std::size_t read(Format format);
   void write(Format format, Output* out);
   void tellScrape();

   Silo::Store store_;
   double begin_ = 0; // of the scrape, by the machine's clock
   Kiln::String piece_;
   Collectors collectors_;
   std::vector<std::unique_ptr<Part>> parts_;
   Samples agent_;     // whether it lives
   Samples build_;     // of this program
   Samples duration_;  // of the scrape
   Samples collected_; // by collector
};

} // namespace ZelMetrics

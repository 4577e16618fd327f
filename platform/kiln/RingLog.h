// The ring log: recent lines of diagnostics, kept in memory for an operator to dump.
//
//    KILN_RINGLOG("Initialize counters for intf " << intf);
//
// It keeps the newest lineLimit lines. Any thread.
#pragma once

#include "kiln/Types.h"

#include <deque>
#include <mutex>
#include <sstream>
#include <vector>

namespace Kiln {

class RingLog {
 public:
   struct Entry {
      double time; // seconds, Kiln::System::currentTime()
      String text;
   };
   static constexpr std::size_t lineLimit = 4096;

   static RingLog& instance();

   void lineIs(String text);
   std::vector<Entry> entries() const; // oldest first
   // Oldest first, each "SECONDS text" with six decimals.
   std::vector<String> lines() const;
   void lineDelAll();

 private:
   mutable std::mutex mutex_;
   std::deque<Entry> lines_;
};

} // namespace Kiln

#define KILN_RINGLOG(operands)                                                                               \
   do {                                                                                                      \
      std::ostringstream kilnRingText;                                                                       \
      kilnRingText << operands;                                                                              \
      ::Kiln::RingLog::instance().lineIs(kilnRingText.str());                                                \
   } while (false)

// The same line to the trace, when that level is on, and to the ring log. Needs a traceHandle in scope.
#define KILN_RINGLOG_TRACE(level, operands)                                                                  \
   do {                                                                                                      \
      KILN_TRACE(level, operands);                                                                           \
      KILN_RINGLOG(operands);                                                                                \
   } while (false)

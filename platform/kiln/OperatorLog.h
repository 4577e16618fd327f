// The operator log: messages for the operator. Each comes from a catalogue entry that says how severe it is, what it
// means and what to do about it.
#pragma once

#include "kiln/EventLog.h"
#include "kiln/Types.h"

#include <deque>
#include <functional>
#include <mutex>
#include <span>
#include <vector>

namespace Kiln {

// Numbered as in RFC 5424; only those in use.
enum class Severity : U8 { error = 3, warning = 4, notice = 5, informational = 6 };

const char* severityText(Severity severity);

// A catalogue entry; static storage.
struct LogMessage {
   const char* id;                         // "ZEL_COUNTERS_OVERFLOW_ERROR"
   Severity severity;                      // RFC 5424
   const char* text;                       // each %s or %d stands for one argument, in order
   const char* explanation;                // what happened and what it touches
   const char* recommendedAction;          // what the operator should do
   const char* event = EventKind::message; // which kind of event it is
   // Set if the first argument, with this before it, says where.
   const char* placePrefix = nullptr;
};

class OperatorLog {
 public:
   struct Entry {
      double time; // seconds, Kiln::System::currentTime()
      const LogMessage* message;
      String text; // the message's text with its arguments
   };
   static constexpr std::size_t entryLimit = 4096;

   static OperatorLog& instance();

   // Any thread. The newest entryLimit entries are kept. Each is an event, too.
   // `event`: its kind where that is not always the same; null for the message's own.
   void log(const LogMessage& message, std::span<const String> arguments, const char* event = nullptr);
   // The entries that are kept, oldest first.
   std::vector<Entry> entries() const;
   // The same, and keeps them no longer.
   std::vector<Entry> newEntries();
   // Called for each new entry, without the log's lock. An empty function for none.
   void sinkIs(std::function<void(const Entry&)> sink);

 private:
   mutable std::mutex mutex_;
   std::deque<Entry> entries_;
   std::function<void(const Entry&)> sink_;
};

} // namespace Kiln

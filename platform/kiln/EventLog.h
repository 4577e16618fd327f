// What happened, for whoever comes later: the parts of the system say so here, and a recorder keeps it.
#pragma once

#include "kiln/Types.h"

#include <array>
#include <functional>
#include <mutex>
#include <string_view>

namespace Kiln {

// The kinds of events. Fixed texts, since they are published.
namespace EventKind {
inline constexpr const char* wrap = "wrap";       // a counter ran over the top of its range
inline constexpr const char* upset = "upset";     // a counter was implausible, as after flipped bits
inline constexpr const char* reset = "reset";     // counters fell together: they began again
inline constexpr const char* suspect = "suspect"; // more octets than the port's speed allows
inline constexpr const char* discontinuity = "discontinuity"; // a count goes on at another place, or anew
inline constexpr const char* portCame = "port-came";
inline constexpr const char* portWent = "port-went";
inline constexpr const char* portMoved = "port-moved";
inline constexpr const char* chipCame = "chip-came";
inline constexpr const char* chipWent = "chip-went";
inline constexpr const char* chipSilent = "chip-silent";
inline constexpr const char* chipAnswers = "chip-answers";
inline constexpr const char* tableFull = "table-full";
inline constexpr const char* tableMended = "table-mended";
inline constexpr const char* tableRemade = "table-remade";
inline constexpr const char* clear = "clear";
inline constexpr const char* agentStarted = "agent-started";
inline constexpr const char* agentEnded = "agent-ended";
inline constexpr const char* agentKilled = "agent-killed";
inline constexpr const char* historyAnew = "history-anew";
inline constexpr const char* message = "message"; // any other message of the operator log

inline constexpr std::array all{wrap,        upset,       reset,       suspect,  discontinuity, portCame,
                                portWent,    portMoved,   chipCame,    chipWent, chipSilent,    chipAnswers,
                                tableFull,   tableMended, tableRemade, clear,    agentStarted,  agentEnded,
                                agentKilled, historyAnew, message};

// Whether one event tells it for all interfaces that it happens to at once: `where` is the first of them, `what` the last,
// and `others` how many came after the first.
constexpr bool isOfCrowds(std::string_view kind) {
   return kind == portCame || kind == portWent || kind == discontinuity;
}
} // namespace EventKind

struct Event {
   const char* kind = EventKind::message;
   String where{}; // an interface, a chip or a table; empty for the whole system
   String what{};  // a counter, the id of a message, or who did it
   String text{};  // for people; may be empty where the rest says all
   bool hasValues = false;
   U64 before = 0; // values of a counter
   U64 after = 0;
   U64 others = 0;  // how many more of that kind came with it
   double time = 0; // on the system's clock; 0: now
};

class EventLog {
 public:
   static EventLog& instance();

   // Any thread. Nobody is told if there is no sink.
   void record(const Event& event) const;
   // Called for each event, without the log's lock. An empty function for none. The one that had been there is returned.
   using Sink = std::function<void(const Event&)>;
   Sink sinkIs(Sink sink);

 private:
   mutable std::mutex mutex_;
   Sink sink_;
};

} // namespace Kiln

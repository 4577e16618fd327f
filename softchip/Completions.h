// Completes accepted SDK requests: at once, later, on another thread, twice, or never.
#pragma once

#include "kiln/Timer.h"
#include "sdk/bf_port.h"
#include "sdk/pipe_mgr.h"

#include <condition_variable>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

namespace SoftChip {

struct CompletionMode {
   enum class Kind : U8 {
      inlined,  // before the request returns
      deferred, // at the same time, on the activity thread, after the handler that asked has returned
      thread,   // on the delivery thread
      late,     // on the activity thread, `seconds` later
      lost,     // never
      held      // when Completions::deliverHeld says so
   };
   Kind kind = Kind::deferred;
   double seconds = 0.0; // of late
   U32 copies = 1;       // 2: every completion comes twice
};

// An accepted request that is not answered yet: a read of a port's MAC counters (macCallback) or a sync of a table
// (syncCallback).
struct Completion {
   int device = 0;
   U64 chipSerial = 0; // tells the chip that was asked from a later one with the same device id
   U16 portOrPipe = 0;
   U32 tableHandle = 0;
   bf_port_mac_stats_cb macCallback = nullptr;
   pipe_mgr_stat_tbl_sync_cback_fn syncCallback = nullptr;
   void* cookie = nullptr;
};

// Any thread, but never with the SDK's lock held. When a callback throws, the exception goes to the requester if it
// completes inline, and to the ring log otherwise.
class Completions {
 public:
   using Deliver = std::function<void(const Completion&)>;

   // `deliver` answers a request: it takes the values of that moment, and calls back.
   explicit Completions(Deliver deliver);
   Completions(const Completions&) = delete;
   Completions& operator=(const Completions&) = delete;
   ~Completions() { shutDown(); }

   // Delivers everything that is outstanding and not lost, and ends the delivery thread; later requests are lost. Not
   // under the activity lock, since callbacks take it.
   void shutDown();

   // For requests from now on. Throws std::invalid_argument for a late mode whose seconds are negative or not finite.
   void modeIs(const CompletionMode& mode);
   CompletionMode mode() const;
   // For the next `times` requests only; calls queue up.
   void nextModeIs(const CompletionMode& mode, U32 times = 1);

   void accept(const Completion& completion);

   std::size_t outstanding() const; // accepted, neither lost nor answered yet
   U64 lostCount() const;
   std::vector<Completion> held() const;       // oldest first
   void deliverHeld(std::size_t position = 0); // by place in held(); throws std::out_of_range
   std::size_t deliverAllHeld();               // returns how many

 private:
   struct Timed {
      double due;
      U64 sequence;
      Completion completion;
   };

   static bool isLater(const Timed& a, const Timed& b);
   static void check(const CompletionMode& mode);
   CompletionMode takeMode();
   void deliverGuarded(const Completion& completion);
   void pushTimed(const Completion& completion, double delay);
   void startThread();
   void pushThread(const Completion& completion);
   void handleClock();
   void runThread();

   Deliver deliver_;
   mutable std::mutex mutex_;
   CompletionMode mode_;
   std::vector<std::pair<CompletionMode, U32>> nextModes_;
   std::vector<Timed> timed_; // a heap, the earliest first
   U64 sequence_ = 0;
   std::vector<Completion> held_;
   U64 lostCount_ = 0;

   std::vector<Completion> forThread_;
   std::size_t threadBusy_ = 0; // taken by the delivery thread and not answered yet
   bool stopping_ = false;
   std::condition_variable threadWakes_;
   std::thread thread_;
   Kiln::Timer<Completions> clock_;
};

} // namespace SoftChip

// The activity thread: its clock and its loop. One a process; the state of the agent belongs to the thread
// that runs it, under the activity lock.
#pragma once

#include "kiln/Clock.h"
#include "kiln/OwnedFd.h"
#include "kiln/Time.h"

#include <functional>
#include <poll.h>
#include <vector>

namespace Kiln {

class ActivityManager : public PtrInterface {
 public:
   // Something to do when a descriptor becomes ready. Embedded in its owner, which must end before the manager. Does
   // not own the descriptor.
   class Descriptor {
    public:
      Descriptor(Ptr<ActivityManager> manager, int fd);
      Descriptor(const Descriptor&) = delete;
      Descriptor& operator=(const Descriptor&) = delete;
      virtual ~Descriptor();

      int fd() const { return fd_; }
      // What to wait for. Under the activity lock, from any thread: the sleeping loop wakes.
      void wantsIs(bool readable, bool writable);
      // Whether it is served in the middle of a handler that gives way, too: of its own, unless it wants nothing
      // meanwhile. Not at first.
      void servedMeanwhileIs(bool served) { servedMeanwhile_ = served; }
      // Says which of the wanted events are there; hang-up and error count as both. May destroy this object.
      virtual void onReady(bool readable, bool writable) = 0;

    private:
      friend class ActivityManager;
      Ptr<ActivityManager> manager_;
      int fd_;
      bool readable_ = false;
      bool writable_ = false;
      bool servedMeanwhile_ = false;
   };

   // Made when missing. instanceDel forgets it, so that the next caller, such as a test, gets a new one.
   static Ptr<ActivityManager> instance();
   static void instanceDel();

   ActivityManager();
   ~ActivityManager() override;

   const Ptr<Clock>& clock() const { return clock_; }

   // Real time: runs clocks and descriptors until stop(). Holds the activity lock, but not while it sleeps, and gives way
   // between two handlers. While a handler gives way, descriptors that are for it are served in its middle. When a handler
   // throws, the exception goes to the ring log and the loop goes on.
   void run();
   // The same, but also ends when `isOver`, which is asked after each turn, says so.
   void runUntil(const std::function<bool()>& isOver);
   // Ends run(), runUntil() and advance() for good, after the handler that is running. Any thread, and signal handlers.
   void stop() noexcept;
   bool isStopping() const { return stopping_.load(); }

   // Lets `seconds` pass. In real time, runs that long. In simulated time, fires everything that is due until then, in
   // order of time; during a handler, time is its expiry. Ends at now + `seconds`, or later when a handler was charged
   // beyond that; what is due in the excess fires in the next advance. Takes the activity lock, which in real time must
   // not be held.
   void advance(double seconds);

 private:
   void wake() const noexcept;
   void wakeSleeper() const noexcept;
   void runDue();
   bool runOne(double time, U64 sequenceLimit);
   class Others;
   struct Awaited { // one for each
      std::vector<pollfd> polled;
      std::vector<Descriptor*> descriptors;
   };
   Awaited awaited(bool isMeanwhile) const;
   bool serveReady(const Awaited& awaited);
   bool serveMeanwhile();
   void sleep();
   void advanceSimulated(SimulatedTime& time, double end);
   void serve(Descriptor* descriptor, int fd, int events);

   Ptr<Clock> clock_;
   OwnedFd wakeEvent_;
   std::atomic<bool> stopping_{false};
   std::atomic<bool> sleeping_{false};
   std::vector<Descriptor*> descriptors_;
   unsigned within_ = 0; // handlers that are in the middle of others
};

// The activity manager's clock.
Ptr<const Clock> activityManagerClock();

} // namespace Kiln

// The loop of the activity thread, over real and over simulated time.
#include "kiln/ActivityManager.h"

#include "kiln/ActivityLock.h"
#include "kiln/Assert.h"
#include "kiln/RingLog.h"

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <limits>
#include <optional>
#include <sys/eventfd.h>
#include <system_error>
#include <unistd.h>

namespace Kiln {

namespace {

Ptr<ActivityManager>& instanceHolder() {
   static auto* holder = new Ptr<ActivityManager>;
   return *holder;
}

// Each has frames on the thread's stack.
constexpr unsigned mostWithin = 8;

// The end of an advance in real time.
struct Alarm : Clock::Notifiee {
   using Notifiee::Notifiee;
   void onTime() override { hasRung = true; }
   bool hasRung = false;
};

} // namespace

// Made for one handler: what it does for descriptors while it gives way, so that a short command does not wait for a long
// one, or for a long pass. What is served may be long, too, and come without end: it gets as much time as the handler had
// itself, and a credit, within which short ones don't wait.
class ActivityManager::Others {
 public:
   explicit Others(ActivityManager& manager) : manager_(manager) {}

 private:
   static constexpr double longestTurn = ActivityLockAnchor::defaultSlice; // seconds, as all here
   static constexpr double credit = 0.05;

   bool serve() {
      const double begin = System::monotonicTime();
      const double own = begin - begin_ - given_;
      if (given_ > own + credit) {
         return false;
      }
      bool isAny = false;
      double took = 0;
      // A client that connects has a line next, and soon an answer to take.
      while (took < longestTurn && manager_.serveMeanwhile()) {
         isAny = true;
         took = System::monotonicTime() - begin;
      }
      given_ += took;
      return isAny;
   }

   ActivityManager& manager_;
   const double begin_ = System::monotonicTime();
   double given_ = 0;
   const ActivityLockAnchor::Meanwhile meanwhile_{[this] { return serve(); }};
};

ActivityManager::Descriptor::Descriptor(Ptr<ActivityManager> manager, int fd)
     : manager_(std::move(manager)), fd_(fd) {
   manager_->descriptors_.push_back(this);
}

ActivityManager::Descriptor::~Descriptor() {
   std::erase(manager_->descriptors_, this);
}

void ActivityManager::Descriptor::wantsIs(bool readable, bool writable) {
   readable_ = readable;
   writable_ = writable;
   // A sleeping loop still waits for what was wanted before.
   manager_->wakeSleeper();
}

Ptr<ActivityManager> ActivityManager::instance() {
   if (!instanceHolder()) {
      instanceHolder() = allocate<ActivityManager>();
   }
   return instanceHolder();
}

void ActivityManager::instanceDel() {
   instanceHolder() = nullptr;
}

ActivityManager::ActivityManager()
     : clock_(allocate<Clock>()), wakeEvent_(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
   if (!wakeEvent_.isOpen()) {
      throw std::system_error(errno, std::generic_category(), "eventfd");
   }
   clock_->wakeIs([this] { wakeSleeper(); });
}

ActivityManager::~ActivityManager() {
   // Notifiees hold the clock, which may therefore outlive this manager.
   clock_->wakeIs({});
}

// Called from signal handlers: keeps errno, allocates nothing.
void ActivityManager::wake() const noexcept {
   const int errorOfInterrupted = errno;
   const U64 one = 1;
   // Fails only when the counter is full, and then the loop is being woken already.
   [[maybe_unused]] const auto written = write(wakeEvent_.fd(), &one, sizeof one);
   errno = errorOfInterrupted;
}

// No wake-up is lost: the loop sets sleeping_ before it asks the clock how long to sleep. Whoever arms the clock after
// that finds sleeping_ set and wakes the loop; whoever armed it before is seen by the loop's own look.
void ActivityManager::wakeSleeper() const noexcept {
   if (sleeping_.load()) {
      wake();
   }
}

void ActivityManager::stop() noexcept {
   // Wakes even a loop that is not asleep: a signal may come between its last look at stopping_ and its sleep, and the
   // event then ends that sleep at once.
   stopping_.store(true);
   wake();
}

bool ActivityManager::runOne(double time, U64 sequenceLimit) {
   try {
      return clock_->fireNext(time, sequenceLimit);
   } catch (const std::exception& error) {
      KILN_RINGLOG("clock handler failed: " << error.what());
   } catch (...) {
      KILN_RINGLOG("clock handler failed");
   }
   return true;
}

// The limit leaves what a handler arms for now to the next turn, so that descriptors are served in between. Between two
// handlers, who waits for the lock gets in: nothing is kept from one to the next but the time.
void ActivityManager::runDue() {
   const double now = System::currentTime();
   const U64 limit = clock_->nextSequence();
   const auto runNext = [&] {
      const Others others(*this);
      return runOne(now, limit);
   };
   while (!stopping_.load() && runNext()) {
      ActivityLockAnchor::giveWay("the loop");
   }
}

// Collected anew each time: handlers change them, and there are few.
ActivityManager::Awaited ActivityManager::awaited(bool isMeanwhile) const {
   Awaited all;
   for (Descriptor* descriptor : descriptors_) {
      // One that wants nothing is left out: poll would report its hang-up at once and again, and serve() ignore it.
      if ((descriptor->readable_ || descriptor->writable_) &&
          (!isMeanwhile || descriptor->servedMeanwhile_)) {
         const int events = (descriptor->readable_ ? POLLIN : 0) | (descriptor->writable_ ? POLLOUT : 0);
         all.polled.push_back({descriptor->fd_, static_cast<short>(events), 0});
         all.descriptors.push_back(descriptor);
      }
   }
   return all;
}

bool ActivityManager::serveReady(const Awaited& awaited) {
   bool isAny = false;
   for (std::size_t i = 0; i < awaited.descriptors.size() && !stopping_.load(); ++i) {
      if (awaited.polled[i].revents != 0) {
         isAny = true;
         serve(awaited.descriptors[i], awaited.polled[i].fd, awaited.polled[i].revents);
         ActivityLockAnchor::giveWay("the loop");
      }
   }
   return isAny;
}

bool ActivityManager::serveMeanwhile() {
   struct Within {
      unsigned& count;
      explicit Within(unsigned& all) : count(all) { ++count; }
      Within(const Within&) = delete;
      Within& operator=(const Within&) = delete;
      ~Within() { --count; }
   } const within(within_);
   try {
      Awaited ready = awaited(true);
      return poll(ready.polled.data(), ready.polled.size(), 0) > 0 && serveReady(ready);
   } catch (const std::bad_alloc&) { // then they wait
      return false;
   }
}

void ActivityManager::sleep() {
   sleeping_.store(true);
   Awaited ready = awaited(false);
   ready.polled.push_back({wakeEvent_.fd(), POLLIN, 0});
   const double expiry = clock_->earliestExpiry();
   timespec timeout{};
   // The upper bound keeps an expiry of never out of the integers; an early wake-up does no harm.
   const double seconds = std::clamp(expiry - System::currentTime(), 0.0, 3600.0);
   timeout.tv_sec = static_cast<time_t>(seconds);
   timeout.tv_nsec = static_cast<long>((seconds - std::floor(seconds)) * 1e9);

   // However long it takes, SDK threads get in.
   ActivityLockAnchor::yieldWhile([&] { ppoll(ready.polled.data(), ready.polled.size(), &timeout, nullptr); },
                                  "the loop");

   sleeping_.store(false);
   U64 wakes = 0;
   [[maybe_unused]] const auto drained = read(wakeEvent_.fd(), &wakes, sizeof wakes);
   serveReady(ready);
}

void ActivityManager::serve(Descriptor* descriptor, int fd, int events) {
   // An earlier handler of this turn, one in the middle of that, or another thread during the sleep may have destroyed the
   // descriptor, made another at its address, or changed what it wants.
   if (std::find(descriptors_.begin(), descriptors_.end(), descriptor) == descriptors_.end() ||
       descriptor->fd_ != fd) {
      return;
   }
   const bool failed = (events & (POLLHUP | POLLERR | POLLNVAL)) != 0;
   const bool readable = descriptor->readable_ && ((events & POLLIN) != 0 || failed);
   const bool writable = descriptor->writable_ && ((events & POLLOUT) != 0 || failed);
   if (!readable && !writable) {
      return;
   }
   try {
      std::optional<Others> others;
      if (within_ < mostWithin) {
         others.emplace(*this);
      }
      descriptor->onReady(readable, writable);
   } catch (const std::exception& error) {
      KILN_RINGLOG("descriptor handler failed: " << error.what());
   } catch (...) {
      KILN_RINGLOG("descriptor handler failed");
   }
}

void ActivityManager::run() {
   runUntil([] { return false; });
}

void ActivityManager::runUntil(const std::function<bool()>& isOver) {
   const auto lock = ActivityLockAnchor::lock();
   const auto isToEnd = [&] { return stopping_.load() || isOver(); };
   while (!isToEnd()) {
      runDue();
      if (!isToEnd()) {
         sleep();
      }
   }
}

void ActivityManager::advance(double seconds) {
   KILN_ASSERT(seconds >= 0.0);
   const double end = System::currentTime() + seconds;
   if (System::timeSource()->isSimulated()) {
      advanceSimulated(static_cast<SimulatedTime&>(*System::timeSource()), end);
   } else {
      Alarm alarm(clock_);
      alarm.timeMinIs(end);
      runUntil([&] { return alarm.hasRung; });
   }
}

void ActivityManager::advanceSimulated(SimulatedTime& time, double end) {
   const auto lock = ActivityLockAnchor::lock();
   // Sums of decimal fractions are off by their rounding: what was meant for the end is due although it lies just
   // beyond.
   constexpr double instant = 1e-9;
   for (double expiry = clock_->earliestExpiry(); expiry <= end + instant && !stopping_.load();
        expiry = clock_->earliestExpiry()) {
      time.nowIs(expiry);
      // No limit, unlike in real time: what a handler arms for this instant fires within the same advance.
      runOne(time.now(), std::numeric_limits<U64>::max());
   }
   if (!stopping_.load()) {
      time.nowIs(end);
   }
}

Ptr<const Clock> activityManagerClock() {
   return ActivityManager::instance()->clock();
}

} // namespace Kiln

// Numbers events, joins those that repeat, and writes them to the shared ring.
#include "vex/EventRecorder.h"

#include "kiln/Time.h"
#include "vex/VexCountersLog.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <string_view>
#include <unistd.h>
#include <utility>

namespace Vex {

using Silo::Interface::eventLimit;

namespace {

constexpr double repeatTime = 60;        // seconds
constexpr unsigned ownEvents = 4;        // of those that come again with other values
constexpr double together = 1;           // seconds
constexpr unsigned ofACrowd = 64;        // events that stand by themselves
constexpr std::size_t restingLooks = 64; // with each polling pass

template <std::size_t size>
void textIs(std::array<char, size>& field, std::string_view text) {
   constexpr std::string_view cut = "...";
   field = {};
   const std::size_t most = size - 1;
   std::memcpy(field.data(), text.data(), std::min(text.size(), most));
   if (text.size() > most) {
      std::memcpy(field.data() + most - cut.size(), cut.data(), cut.size());
   }
}

// What is counted on: all that is told, but for the values.
Kiln::String sameAs(const Silo::Interface::Event& event) {
   return Kiln::String(event.kind.data()) + '\n' + event.where.data() + '\n' + event.what.data() + '\n' +
          event.text.data();
}

Kiln::String crowdOf(const Silo::Interface::Event& event) {
   return Kiln::String(event.kind.data()) + '\n' +
          (Kiln::EventKind::isOfCrowds(event.kind.data()) ? event.text.data() : "");
}

// Events wait while it lives.
class Held {
 public:
   explicit Held(bool& isHeld) : isHeld_(isHeld), wasHeld_(std::exchange(isHeld, true)) {}
   Held(const Held&) = delete;
   Held& operator=(const Held&) = delete;
   ~Held() { isHeld_ = wasHeld_; }

 private:
   bool& isHeld_;
   bool wasHeld_;
};

} // namespace

EventRecorder::EventRecorder(const Silo::Store& store, double pollingInterval, bool isProvisional)
     : table_(store, Silo::Interface::TableName::events, Record{},
              {.capacity = eventLimit,
               .pollingInterval = pollingInterval,
               .clockDomain = Kiln::System::timeSource()->isSimulated() ? Silo::ClockDomain::simulatedTime()
                                                                        : Silo::ClockDomain::monotonic(),
               .onCorruption = logCorruption,
               .isProvisional = isProvisional,
               .restingLooks = restingLooks}),
       ring_(eventLimit) {
   for (const Silo::Key& key : table_.keys()) {
      const auto [record, info] = table_.sampleOrDefault(key);
      lastSign_ = std::max(lastSign_, info.sampleTime);
      if (key == Silo::Key(std::to_string(record.number % eventLimit))) {
         at(record.number) = record;
         last_ = std::max(last_, record.number);
      } else { // somebody else's, or damaged: the ring has room for its own only
         table_.recordDel(key);
      }
   }
   sinkBefore_ = Kiln::EventLog::instance().sinkIs([this](const Kiln::Event& event) { record(event); });
}

EventRecorder::~EventRecorder() {
   Kiln::EventLog::instance().sinkIs(std::move(sinkBefore_));
   if (hasStarted_) {
      record({.kind = Kiln::EventKind::agentEnded, .what = "pid " + std::to_string(getpid())});
   }
}

void EventRecorder::started(double lastSign) {
   const std::lock_guard lock(mutex_);
   table_.keep();
   hasStarted_ = true;
   lastSign = std::max(lastSign, lastSign_); // it may have been killed before it published anything
   if (const pid_t former = table_.unclosedBy(); former != 0) {
      write({.kind = Kiln::EventKind::agentKilled,
             .what = "pid " + std::to_string(former),
             .text = "it ended without closing its tables, after it had published for the last time",
             .time = std::isfinite(lastSign) ? lastSign : 0});
   }
   write({.kind = Kiln::EventKind::agentStarted, .what = "pid " + std::to_string(getpid())});
   isHeld_ = false;
   writeWaiting();
}

void EventRecorder::mend() {
   const std::lock_guard lock(mutex_);
   {
      const Held held(isHeld_); // what is found is an event too
      table_.mend();
   }
   if (!isHeld_) {
      writeWaiting();
   }
}

void EventRecorder::record(const Kiln::Event& event) {
   const std::lock_guard lock(mutex_);
   waiting_.push_back(event);
   if (!isHeld_) {
      writeWaiting();
   }
}

void EventRecorder::writeWaiting() {
   const Held held(isHeld_);
   while (!waiting_.empty()) {
      const Kiln::Event next = std::move(waiting_.front());
      waiting_.pop_front();
      write(next);
   }
}

void EventRecorder::write(const Kiln::Event& event) {
   const double now = Kiln::System::currentTime();
   const double time = event.time != 0 ? event.time : now;
   const double unixTime = Kiln::System::unixTime() - (now - time);
   Record came{.time = time,
               .unixTime = unixTime,
               .count = 1,
               .lastTime = time,
               .lastUnixTime = unixTime,
               .hasValues = event.hasValues ? U64{1} : U64{0},
               .before = event.before,
               .after = event.after,
               .others = event.others};
   textIs(came.kind, event.kind);
   textIs(came.where, event.where);
   textIs(came.what, event.what);
   textIs(came.text, event.text);
   if (joins(came) || isCounted(came)) {
      return;
   }
   came.number = ++last_;
   at(came.number) = came;
   crowds_[crowdOf(came)].number = came.number;
   repeats_[sameAs(came)].number = came.number;
   put(came);
   if (repeats_.size() > eventLimit) {
      std::erase_if(repeats_,
                    [this](const auto& each) { return at(each.second.number).number != each.second.number; });
   }
}

// Of a crowd, the newest event counts the others, and names the last one.
bool EventRecorder::joins(const Record& came) {
   Crowd& crowd = crowds_[crowdOf(came)];
   // From its first one on, or what comes again and again would be one crowd without an end.
   const bool isTogether = came.time >= crowd.time && came.time - crowd.time <= together;
   crowd.count = isTogether ? crowd.count + 1 : 1;
   crowd.time = isTogether ? crowd.time : came.time;
   Record& newest = at(crowd.number);
   const bool isAll = Kiln::EventKind::isOfCrowds(came.kind.data());
   const bool isAlone = isAll && newest.others == 0 && newest.where == came.where; // it comes again
   if (crowd.count <= (isAll ? 1 : ofACrowd) || crowd.number == 0 || newest.number != crowd.number ||
       isAlone) {
      return false;
   }
   newest.others += 1;
   newest.lastTime = came.lastTime;
   newest.lastUnixTime = came.lastUnixTime;
   if (isAll) {
      newest.what = came.where;
   } else {
      textIs(newest.text, Kiln::String("and others at the same time, the last ") + came.where.data() + " " +
                               came.what.data());
   }
   put(newest);
   return true;
}

bool EventRecorder::isCounted(const Record& came) {
   Repeat& repeat = repeats_[sameAs(came)];
   Record& known = at(repeat.number);
   const bool isRepeated = repeat.number != 0 && known.number == repeat.number &&
                           came.time >= known.lastTime && came.time - known.lastTime <= repeatTime;
   const bool isSame =
        known.before == came.before && known.after == came.after && known.others == came.others;
   if (!isRepeated || (!isSame && repeat.inARow < ownEvents)) {
      repeat.inARow = isRepeated ? repeat.inARow + 1 : 1;
      return false;
   }
   known.count += 1;
   known.lastTime = came.lastTime;
   known.lastUnixTime = came.lastUnixTime;
   known.before = came.before;
   known.after = came.after;
   known.others = came.others;
   crowds_[crowdOf(came)].number = known.number; // who comes with it is counted there
   put(known);
   return true;
}

void EventRecorder::put(const Record& record) {
   table_.recordIs(Silo::Key(std::to_string(record.number % eventLimit)), record, record.lastTime);
}

} // namespace Vex

// Takes all queues of an interface from reading to reading.
#pragma once

#include "vex/Continuity.h"

namespace Vex {

// A meter for each queue: its packets and bytes fall together, its drops on their own. What nearly all steps need lies in
// one run, apart from the lifts, and is gone through as one row of words.
class QueueMeters {
 public:
   using Queue = Silo::Interface::QueueStatistics;
   static constexpr std::size_t queueCount = Silo::Interface::IntfQueueCounters::queueCount;
   using Values = std::array<Queue, queueCount>;

   struct QueueStep {
      Step<2> sent; // packets and bytes
      Step<1> dropped;

      Queue counts() const { return {sent.counts[0], sent.counts[1], dropped.counts[0]}; }
      bool isMarked() const { return sent.isMarked || dropped.isMarked; }
   };

   // If the steps of the first `count` queues are such as nearly all are, calls take(i, step) for each of their words in
   // Values. False: nothing was done. Same as reading each of them with Begin::step, in less time.
   template <class Take>
   bool takePlain(const Values& readings, std::size_t count, Take take);
   QueueStep read(std::size_t queue, const Queue& reading, Begin begin);
   // Nothing to go on from.
   void forget(std::size_t queue) { last_[queue] = lift_[queue] = {}; }
   const Values& last() const { return last_; }
   // What only comes into play with a step that is not plain, at the end.
   static constexpr std::size_t seldomTouched = sizeof(Values);

 private:
   static constexpr std::size_t wordsPerQueue = sizeof(Queue) / sizeof(U64);

   alignas(32) Values last_{};
   Values lift_{};
};

template <class Take>
bool QueueMeters::takePlain(const Values& readings, std::size_t count, Take take) {
   using Interface::word;
   const std::size_t words = std::min(count, queueCount) * wordsPerQueue;
   // As in takeVettedStep: a step that is not plain leaves a high bit in one of these.
   U64 steps = 0;
   U64 falls = 0;
   for (std::size_t i = 0; i < words; ++i) {
      steps |= word(readings, i) - word(last_, i);
      falls |= word(last_, i) & ~word(readings, i);
   }
   if (steps >= Interface::wrapWindow || falls >= Interface::topBit) {
      return false;
   }
   for (std::size_t i = 0; i < words; ++i) {
      const U64 reading = word(readings, i);
      take(i, reading - word(last_, i));
      Interface::wordIs(last_, i, reading);
   }
   return true;
}

inline QueueMeters::QueueStep QueueMeters::read(std::size_t queue, const Queue& reading, Begin begin) {
   Queue& last = last_[queue];
   Queue& lift = lift_[queue];
   Meter<2> sent;
   sent.continueFrom({last.packets, last.bytes}, {lift.packets, lift.bytes});
   Meter<1> dropped;
   dropped.continueFrom({last.drops}, {lift.drops});
   const QueueStep step{sent.read({reading.packets, reading.bytes}, begin),
                        dropped.read({reading.drops}, begin)};
   last = {sent.last()[0], sent.last()[1], dropped.last()[0]};
   lift = {sent.lift()[0], sent.lift()[1], dropped.lift()[0]};
   return step;
}

} // namespace Vex

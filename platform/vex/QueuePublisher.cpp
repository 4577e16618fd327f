// Adds up the reports of queue counters.
#include "vex/QueuePublisher.h"

#include "kiln/Time.h"
#include "silo/Prefetch.h"
#include "vex/BreakEvents.h"

#include <stdexcept>

namespace Vex::Counters {

using Silo::Interface::QueueStatistics;

namespace {

QueueStatistics sumOf(const QueueStatistics& a, const QueueStatistics& b) {
   return {a.packets + b.packets, a.bytes + b.bytes, a.drops + b.drops};
}

template <std::size_t n>
void tellQueue(const Silo::Key& key, std::size_t queue, const Step<n>& step,
               const std::array<const char*, n>& names) {
   if (step.isMarked) {
      tellBreak(Kiln::String(key.view()), "queue." + std::to_string(queue) + "." + names[step.broken.field],
                step.broken);
   }
}

} // namespace

QueuePublisher::Counted& QueuePublisher::countedOf(const Pelt::IntfId& intf) {
   if (Counted* present = counted_.findInPass(intf)) {
      Silo::prefetch(counted_.nextInPass(), sizeof(Counted));
      return *present;
   }
   counted_.set(intf, {Silo::Key(intf.text())});
   Counted& counted = *counted_.find(intf);
   const auto published = counters_->table().sampleOrDefault(counted.key);
   const double now = Kiln::System::currentTime();
   if (published.info.generation == 0) {
      beginRecord(counted.record, now);
   } else {
      counted.record = published.record;
      counted.sampleTime = published.info.sampleTime;
      continueRecord(counted.record, counted.sampleTime, now);
      // Of an entry that was made and never read, there is nothing to go on from.
      counted.sources.keptIs(counted.record.reported != 0 ? Begin::nothing : Begin::step);
   }
   if (clearCounters_) {
      counted.clear.continueFrom(clearCounters_->table(), counted.key, counted.record);
   }
   return counted;
}

void QueuePublisher::publish(const Pelt::IntfId& intf, const VexTypes::IntfQueueCounters& report,
                             bool isIncrement) {
   if (!counters_) {
      return;
   }
   Counted& counted = countedOf(intf);
   Record& record = counted.record;
   const VexTypes::IntfQueueCounters::Readings& readings = report.readings();
   // A clear hands over the last reading again. It must not replace the step between the last two readings.
   const bool isNewSample =
        report.sampleTime() == Silo::unknownSampleTime || report.sampleTime() != counted.reportTime;
   Begin begin = Begin::step;
   if (readings.isCounted != nullptr) {
      begin = counted.sources.next(readings.source, *readings.isCounted);
   }
   const bool isExchanged = counted.sources.isExchanged();
   counted.sources.exchangedDel();
   if (begin != Begin::step) {
      dropQueues(counted, report);
   }
   if (isExchanged) {
      tellDiscontinuity(intf.text(), "its queues are read at another place, or their chip came again");
   }
   // What an earlier process did not see any more is lost.
   const bool isLost = !isExchanged && begin == Begin::nothing && record.reported != 0;
   if (isLost) {
      tellDiscontinuity(intf.text(), "what its queues counted after an earlier agent's last reading is lost");
   }
   if (isNewSample) {
      dropStep(record);
      record.interval = isExchanged ? 0 : intervalBetween(counted.reportTime, report.sampleTime());
      counted.reportTime = report.sampleTime();
   }
   bool isMarked = isExchanged || isLost;
   for (std::size_t queue = 0; queue < Record::queueCount; ++queue) {
      if (report.has(queue)) {
         isMarked |= takeQueue(counted, queue, report, begin, isIncrement) && isNewSample;
      }
   }
   const double now = Kiln::System::currentTime();
   if (isMarked) {
      record.discontinuityTime = now;
   }
   // A report without a known time leaves the record's time as it was.
   if (report.sampleTime() != Silo::unknownSampleTime) {
      counted.sampleTime = report.sampleTime();
   } else if (counted.sampleTime == Silo::unknownSampleTime) {
      counted.sampleTime = now;
   }
   if (history_) {
      history_->queuesAre(counted.key, record, counted.sampleTime, counted.keptTime);
   }
   counters_->table().recordIs(counted.key, record, counted.sampleTime);
   counted.clear.write(clearTable(), counted.key);
}

QueueDrops QueuePublisher::drops(const Pelt::IntfId& intf) const {
   const auto sumOfDrops = [](const Record& record) {
      U64 packets = 0;
      for (const QueueStatistics& queue : record.totals) {
         packets += queue.drops;
      }
      return packets;
   };
   if (const Counted* const counted = counted_.findInPass(intf)) {
      return {sumOfDrops(counted->record),
              counted->record.reported != 0 ? counted->sampleTime : Silo::unknownSampleTime};
   }
   // Those that an earlier process published go on.
   return {counters_ ? sumOfDrops(counters_->table().sampleOrDefault(Silo::Key(intf.text())).record) : 0};
}

// True if the continuity of the queue's counts is broken.
bool QueuePublisher::takeQueue(Counted& counted, std::size_t queue, const VexTypes::IntfQueueCounters& report,
                               Begin begin, bool isIncrement) {
   Record& record = counted.record;
   const U32 bit = U32{1} << queue;
   const bool hasSource = report.readings().isCounted != nullptr;
   const QueueStatistics& reported = report.intfQueueStat(queue);
   const QueueStatistics& value = hasSource ? report.readings().stats[queue] : reported;
   if (!hasSource && (counted.seen & bit) == 0 && (record.reported & bit) != 0) {
      begin = Begin::nothing; // an earlier process reported it: the total stands
   }
   counted.seen |= bit;
   record.present |= bit;
   record.reported |= bit;
   const std::array<U64, 2> sent{value.packets, value.bytes};
   const std::array<U64, 1> dropped{value.drops};
   QueueStatistics step;
   const bool isPlain =
        begin == Begin::step && counted.sent[queue].isPlain(sent) && counted.dropped[queue].isPlain(dropped);
   if (isPlain) {
      const auto [packets, bytes] = counted.sent[queue].takePlain(sent);
      step = {packets, bytes, counted.dropped[queue].takePlain(dropped)[0]};
   }
   const bool isMarked = !isPlain && takeVetted(counted, queue, sent, dropped, begin, step);
   QueueStatistics& total = record.totals[queue];
   QueueStatistics& delta = record.deltas[queue];
   total = isIncrement ? sumOf(total, step) : reported;
   delta = sumOf(delta, step);
   return isMarked;
}

// The same for whatever step it may be.
bool QueuePublisher::takeVetted(Counted& counted, std::size_t queue, const std::array<U64, 2>& sent,
                                const std::array<U64, 1>& dropped, Begin begin, QueueStatistics& step) {
   const Step<2> sentStep = counted.sent[queue].read(sent, begin);
   const Step<1> droppedStep = counted.dropped[queue].read(dropped, begin);
   tellQueue<2>(counted.key, queue, sentStep, {"packets", "bytes"});
   tellQueue<1>(counted.key, queue, droppedStep, {"drops"});
   if (sentStep.isAbsorbed != decltype(sentStep.isAbsorbed){} || droppedStep.isAbsorbed[0]) {
      counted.record.absorbed |= U32{1} << queue;
   }
   step = {sentStep.counts[0], sentStep.counts[1], droppedStep.counts[0]};
   return sentStep.isMarked || droppedStep.isMarked;
}

// The port that is read now does not have them. Their totals are kept, should it get them back: within a creation time no
// total steps back.
void QueuePublisher::dropQueues(Counted& counted, const VexTypes::IntfQueueCounters& report) {
   Record& record = counted.record;
   for (std::size_t queue = 0; queue < Record::queueCount; ++queue) {
      if (record.has(queue) && !report.has(queue)) {
         record.present &= ~(U32{1} << queue);
         record.reported &= ~(U32{1} << queue);
         counted.sent[queue] = {};
         counted.dropped[queue] = {};
      }
   }
}

bool QueuePublisher::isPublished(const Pelt::IntfId& intf) const {
   try {
      return counters_ && (counted_.contains(intf) || counters_->table().has(Silo::Key(intf.text())));
   } catch (const std::invalid_argument&) {
      return false; // no record can have that name
   }
}

bool QueuePublisher::clear(const Pelt::IntfId& intf) {
   if (!isPublished(intf)) {
      return false;
   }
   Counted& counted = countedOf(intf);
   counted.clear.clear(counted.record, Kiln::System::currentTime());
   counted.clear.write(clearTable(), counted.key);
   return true;
}

void QueuePublisher::clearAll(PublishErrors& errors) {
   if (!counters_) {
      return;
   }
   const auto clearOne = [&](const Pelt::IntfId& intf) {
      try {
         clear(intf);
      } catch (const Silo::TableError& error) { // the others are still to be cleared
         errors.log(intf, error);
      }
   };
   for (const Silo::Key& key : counters_->table().keys()) {
      clearOne(Pelt::IntfId{Kiln::Name(Kiln::String(key.view()))});
   }
   // Those that the table had no room for.
   for (const auto& [intf, counted] : counted_) {
      if (!counters_->table().has(counted.key)) {
         clearOne(intf);
      }
   }
}

void QueuePublisher::remove(const Pelt::IntfId& intf) {
   counted_.erase(intf);
   // Also when nothing was counted: the records may be an earlier process's.
   const Silo::Key key(intf.text());
   if (counters_) {
      counters_->table().recordDel(key);
   }
   if (clearCounters_) {
      clearCounters_->table().recordDel(key);
   }
}

void QueuePublisher::removeAbsent(const std::function<bool(const Pelt::IntfId&)>& isThere) {
   if (!counters_) {
      return;
   }
   for (const Silo::Key& key : counters_->table().keys()) {
      const Pelt::IntfId intf{Kiln::Name(Kiln::String(key.view()))};
      if (!counted_.contains(intf) && !isThere(intf)) {
         remove(intf);
      }
   }
}

} // namespace Vex::Counters

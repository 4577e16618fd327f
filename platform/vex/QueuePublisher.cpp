// Adds up the reports of queue counters.
#include "vex/QueuePublisher.h"

#include "kiln/Time.h"
#include "silo/Prefetch.h"
#include "vex/BreakEvents.h"

#include <algorithm>
#include <bit>
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
      Silo::prefetch(counted_.nextInPass(), sizeof(Counted) - QueueMeters::seldomTouched);
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
      record.absorbed = 0;
      record.interval = isExchanged ? 0 : intervalBetween(counted.reportTime, report.sampleTime());
      counted.reportTime = report.sampleTime();
   }
   bool isMarked = isExchanged || isLost;
   const bool isPlain = isNewSample && isIncrement && begin == Begin::step && takePlain(counted, report);
   if (isNewSample && !isPlain) {
      record.deltas = {};
   }
   for (std::size_t queue = 0; !isPlain && queue < Record::queueCount; ++queue) {
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

// Takes a report of the first so many queues, as ports have them, if all steps are such as nearly all are.
bool QueuePublisher::takePlain(Counted& counted, const VexTypes::IntfQueueCounters& report) {
   const auto count = static_cast<std::size_t>(std::countr_one(report.reported()));
   if (report.readings().isCounted == nullptr || report.reported() >> count != 0) {
      return false;
   }
   Record& record = counted.record;
   const auto take = [&record](std::size_t word, U64 step) {
      Interface::wordIs(record.totals, word, Interface::word(record.totals, word) + step);
      Interface::wordIs(record.deltas, word, step);
   };
   if (!counted.meters.takePlain(*report.readings().stats, count, take)) {
      return false;
   }
   std::fill(record.deltas.begin() + count, record.deltas.end(), QueueStatistics());
   counted.seen |= report.reported();
   record.present |= report.reported();
   record.reported |= report.reported();
   return true;
}

// The same for one queue and whatever step it may be. True if the continuity of its counts is broken.
bool QueuePublisher::takeQueue(Counted& counted, std::size_t queue, const VexTypes::IntfQueueCounters& report,
                               Begin begin, bool isIncrement) {
   Record& record = counted.record;
   const U32 bit = U32{1} << queue;
   const bool hasSource = report.readings().isCounted != nullptr;
   const QueueStatistics& reported = report.intfQueueStat(queue);
   if (!hasSource && (counted.seen & bit) == 0 && (record.reported & bit) != 0) {
      begin = Begin::nothing; // an earlier process reported it: the total stands
   }
   counted.seen |= bit;
   record.present |= bit;
   record.reported |= bit;
   const QueueMeters::QueueStep step =
        counted.meters.read(queue, hasSource ? (*report.readings().stats)[queue] : reported, begin);
   tellQueue<2>(counted.key, queue, step.sent, {"packets", "bytes"});
   tellQueue<1>(counted.key, queue, step.dropped, {"drops"});
   if (step.sent.isAbsorbed != decltype(step.sent.isAbsorbed){} || step.dropped.isAbsorbed[0]) {
      record.absorbed |= bit;
   }
   QueueStatistics& total = record.totals[queue];
   QueueStatistics& delta = record.deltas[queue];
   total = isIncrement ? sumOf(total, step.counts()) : reported;
   delta = sumOf(delta, step.counts());
   return step.isMarked();
}

// The port that is read now does not have them. Their totals are kept, should it get them back: within a creation time no
// total steps back.
void QueuePublisher::dropQueues(Counted& counted, const VexTypes::IntfQueueCounters& report) {
   Record& record = counted.record;
   for (std::size_t queue = 0; queue < Record::queueCount; ++queue) {
      if (record.has(queue) && !report.has(queue)) {
         record.present &= ~(U32{1} << queue);
         record.reported &= ~(U32{1} << queue);
         counted.meters.forget(queue);
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

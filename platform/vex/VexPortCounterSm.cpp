// From a port's reading to its published record.
#include "vex/VexPortCounterSm.h"

#include "kiln/EventLog.h"
#include "kiln/Time.h"
#include "kiln/VectorClones.h"
#include "vex/BreakEvents.h"
#include "zel/InterfaceDirs.h"

namespace Vex::Counters {

namespace {

constexpr double bitsPerOctet = 8;
constexpr double speedTolerance =
     1.1; // the interval is between publications, not between the chip's readings

// A function of its own, since the clones are per function. Only here does a wider register pay: 69 fields a step.
KILN_VECTOR_CLONES bool takePortStep(VexTypes::IntfCounters& previous, Silo::Interface::IntfCounters& next,
                                     double now, Break& flip) {
   return takeVettedStep(previous, next, now, flip);
}

} // namespace

VexPortCounterSm::VexPortCounterSm(const Pelt::IntfId& intf)
     : prevCounters_(Kiln::allocate<VexTypes::IntfCounters>()), intf_(intf), key_(intf.text()) {}

void VexPortCounterSm::handleSeed(bool isKept, const Tables& tables) {
   isSeeded_ = true;
   prevCounters_->followsSourcesIs(true);
   Silo::Interface::IntfCounters& record = prevCounters_->record();
   if (!isKept) {
      beginRecord(record, Kiln::System::currentTime());
   } else if (continueRecord(record, prevCounters_->sampleTime(), Kiln::System::currentTime())) {
      // The earlier process's last reading is compared with, wherever the port was then.
      prevCounters_->sources().keptIs(Begin::difference);
   }
   if (tables.clearCounters != nullptr) {
      clear_.continueFrom(*tables.clearCounters, key_, record);
   }
}

void VexPortCounterSm::update(VexHelper::VexHelperCountersSm& helper,
                              const Kiln::Ptr<VexTypes::IntfCounters>& reading, const Tables& tables,
                              const U64* speed) {
   // All ports share the reading. A helper that has none leaves it as it is, which is the port before.
   reading->isFilledIs(false);
   // What was absorbed belongs to the step before.
   prevCounters_->absorbedDelAll();
   const Source source = prevCounters_->sources().source();
   helper.getCounters(intf_, reading, prevCounters_);
   if (!reading->isFilled()) {
      return;
   }
   if (prevCounters_->sources().isExchanged()) {
      tellExchange(source);
   }
   const double now = Kiln::System::currentTime();
   Silo::Interface::IntfCounters& record = reading->record();
   prevCounters_->record().speed = speed != nullptr ? *speed : 0;
   Break flip;
   const bool isContinuous = takePortStep(*prevCounters_, record, now, flip);
   if (flip.before != flip.after) {
      tellUpset(intf_.text(), Interface::ethIntfFields[flip.field].name, flip.before, flip.after);
   }
   // The first step is from another process's reading, or from none: it says nothing about the port's speed.
   if (isContinuous && !isSeeded_) {
      record.suspects +=
           suspects(record, speed != nullptr ? *speed : Interface::EthPhyIntfStatusDir::defaultSpeed);
      prevCounters_->record().suspects = record.suspects;
   }
   isSeeded_ = false;
   if (tables.history != nullptr) {
      tables.history->portIs(key_, record, now, queueDrops_);
   }
   // Last: the step counts, even if the table refuses the record.
   tables.counters.recordIs(key_, record, now);
   clear_.write(tables.clearCounters, key_);
}

// The port goes on at another place, or its chip began another life.
void VexPortCounterSm::tellExchange(const Source& before) const {
   const Source& now = prevCounters_->sources().source();
   const auto placeText = [](const Source& source) {
      return "port " + std::to_string(source.place) + " of device " + std::to_string(source.device);
   };
   if (now.isAt(before)) {
      tellDiscontinuity(intf_.text(), "its chip came again: counters go on if the hardware kept them");
   } else {
      Kiln::EventLog::instance().record({.kind = Kiln::EventKind::portMoved,
                                         .where = intf_.text(),
                                         .text = "from " + placeText(before) + " to " + placeText(now)});
   }
}

void VexPortCounterSm::clear(const Tables& tables) {
   clear_.clear(prevCounters_->record(), Kiln::System::currentTime());
   clear_.write(tables.clearCounters, key_);
}

void VexPortCounterSm::remove(const Tables& tables) const {
   tables.counters.recordDel(key_);
   if (tables.clearCounters != nullptr) {
      tables.clearCounters->recordDel(key_);
   }
}

// How many octet counters rose by more than the speed allows in the interval.
U64 VexPortCounterSm::suspects(const Silo::Interface::IntfCounters& record, U64 speed) const {
   using Interface::EthIntfStatistics;
   if (record.interval <= 0) {
      return 0;
   }
   const double most = static_cast<double>(speed) / bitsPerOctet * record.interval * speedTolerance;
   U64 found = 0;
   for (const std::size_t offset :
        {offsetof(EthIntfStatistics, inOctets), offsetof(EthIntfStatistics, outOctets)}) {
      if (static_cast<double>(record.deltas[offset / sizeof(U64)]) > most) {
         ++found;
         Kiln::EventLog::instance().record(
              {.kind = Kiln::EventKind::suspect,
               .where = intf_.text(),
               .what = Interface::ethIntfFields[offset / sizeof(U64)].name,
               .text = "more than the port's speed allows",
               .hasValues = true,
               .before = record.totals[offset / sizeof(U64)] - record.deltas[offset / sizeof(U64)],
               .after = record.totals[offset / sizeof(U64)]});
      }
   }
   return found;
}

} // namespace Vex::Counters

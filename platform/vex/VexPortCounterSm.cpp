// From a port's reading to its published record.
#include "vex/VexPortCounterSm.h"

#include "kiln/Time.h"
#include "kiln/VectorClones.h"
#include "zel/InterfaceDirs.h"

namespace Vex::Counters {

namespace {

constexpr double bitsPerOctet = 8;
constexpr double speedTolerance =
     1.1; // the interval is between publications, not between the chip's readings

// A function of its own, since the clones are per function. Only here does a wider register pay: 69 fields a step.
KILN_VECTOR_CLONES bool takePortStep(VexTypes::IntfCounters& previous, Silo::Interface::IntfCounters& next,
                                     double now) {
   return takeVettedStep(previous, next, now);
}

} // namespace

VexPortCounterSm::VexPortCounterSm(const Pelt::IntfId& intf)
     : prevCounters_(Kiln::allocate<VexTypes::IntfCounters>()), intf_(intf), key_(intf.text()) {}

void VexPortCounterSm::handleSeed(bool isKept, const Tables& tables) {
   isSeeded_ = true;
   prevCounters_->followsSourcesIs(true);
   Silo::Interface::IntfCounters& record = prevCounters_->record();
   if (isKept) {
      // The earlier process's last reading is compared with, wherever the port was then.
      prevCounters_->sources().keptIs(Begin::difference);
      continueRecord(record, prevCounters_->sampleTime(), Kiln::System::currentTime());
   } else {
      beginRecord(record, Kiln::System::currentTime());
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
   helper.getCounters(intf_, reading, prevCounters_);
   if (!reading->isFilled()) {
      return;
   }
   const double now = Kiln::System::currentTime();
   Silo::Interface::IntfCounters& record = reading->record();
   prevCounters_->record().speed = speed != nullptr ? *speed : 0;
   // The first step is from another process's reading, or from none: it says nothing about the port's speed.
   if (takePortStep(*prevCounters_, record, now) && !isSeeded_) {
      record.suspects +=
           suspects(record, speed != nullptr ? *speed : Interface::EthPhyIntfStatusDir::defaultSpeed);
      prevCounters_->record().suspects = record.suspects;
   }
   isSeeded_ = false;
   // Last: the step counts, even if the table refuses the record.
   tables.counters.recordIs(key_, record, now);
   clear_.write(tables.clearCounters, key_);
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
      }
   }
   return found;
}

} // namespace Vex::Counters

// From a port's reading to its published record.
#include "vex/VexPortCounterSm.h"

#include "kiln/Time.h"
#include "kiln/VectorClones.h"
#include "vex/CounterSteps.h"

namespace Vex::Counters {

namespace {

constexpr double bitsPerOctet = 8;
constexpr double speedTolerance =
     1.1; // the interval is between publications, not between the chip's readings

// A function of its own, since the clones are per function. Only here does a wider register pay: 69 fields a step.
KILN_VECTOR_CLONES bool takePortStep(VexTypes::IntfCounters& previous, Silo::Interface::IntfCounters& next,
                                     double now) {
   return takeStep(previous, next, now);
}

} // namespace

VexPortCounterSm::VexPortCounterSm(const Pelt::IntfId& intf)
     : prevCounters_(Kiln::allocate<VexTypes::IntfCounters>()), intf_(intf), key_(intf.text()) {}

void VexPortCounterSm::handleSeed(bool isKept) {
   isSeeded_ = true;
   seed(*prevCounters_, isKept);
}

void VexPortCounterSm::update(VexHelper::VexHelperCountersSm& helper,
                              const Kiln::Ptr<VexTypes::IntfCounters>& reading,
                              Silo::Interface::AllIntfCounters& counters, U64 speed) {
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
   // The first step is from another process's reading, or from none: it says nothing about the port's speed.
   if (takePortStep(*prevCounters_, record, now) && !isSeeded_) {
      record.suspects += suspects(record, speed);
      prevCounters_->record().suspects = record.suspects;
   }
   isSeeded_ = false;
   // Last: the step counts, even if the table refuses the record.
   counters.table().recordIs(key_, record, now);
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

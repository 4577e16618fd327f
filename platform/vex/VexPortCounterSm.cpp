// From a port's reading to its published record.
#include "vex/VexPortCounterSm.h"

#include "kiln/Time.h"
#include "vex/CounterSteps.h"

namespace Vex::Counters {

namespace {

constexpr double bitsPerOctet = 8;
constexpr double speedTolerance = 1.1;

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
   reading->isFilledIs(false);
   prevCounters_->absorbedDelAll();
   helper.getCounters(intf_, reading, prevCounters_);
   if (!reading->isFilled()) {
      return;
   }
   const double now = Kiln::System::currentTime();
   Silo::Interface::IntfCounters& record = reading->record();
   if (takeStep(*prevCounters_, record, now) && !isSeeded_) {
      record.suspects += suspects(record, speed);
      prevCounters_->record().suspects = record.suspects;
   }
   isSeeded_ = false;
   // The step is taken, whether the table takes the record or not.
   counters.table().recordIs(key_, record, now);
}

// Steps in octets that the speed does not allow in the time.
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

// How many packets ports drop for each reason now: the records have totals only.
#pragma once

#include "silo/TableReader.h"
#include "vex/PublishedChip.h"

#include <map>
#include <optional>
#include <vector>

namespace ZelExporter {

// What a port dropped at a point for a reason.
struct ReasonDrops {
   std::string_view point;
   Kiln::String reason;
   U64 total = 0;
   std::optional<double> rate{}; // per second, between the last two readings; if known
   // Whether it is part of the port's drops: "same port" is how a switch works, and "bad FCS" one of the errors.
   bool isSummed = true;
};

// One thread at a time.
class ReasonRates {
 public:
   using Record = Silo::Interface::IntfDropCounters;

   // What makes a rate one of now, in seconds: how far apart its two readings may be, and how old the later one.
   struct Limits {
      double apart;
      double age;
   };

   // Takes what was read at `now`, by the clock of the records. Ports that are not among the entries are forgotten.
   void take(const std::vector<Silo::Entry<Record>>& entries, double now, const Limits& limits);

   // Drops of the port, those that there ever were any of; the final point counts none that is not there already, and
   // is left out. `isOfNow`: whether rates are.
   std::vector<ReasonDrops> of(const Kiln::String& intf, bool isOfNow) const;

 private:
   struct Port {
      U64 round = 0; // when it was there last
      Record record;
      std::array<std::optional<double>, Record::placeCount> rates{};
   };

   std::map<Kiln::String, Port, std::less<>> ports_;
   U64 round_ = 0;
};

} // namespace ZelExporter

// Divides the difference of two readings by the time between them.
#include "apps/zelexporter/page/ReasonRates.h"

namespace ZelExporter {

using Kiln::String;

namespace {

bool isApart(ZlDrop::Point point, U32 reason) {
   using ZlDrop::IngressReason;
   return point == ZlDrop::Point::ingress && (reason == static_cast<U32>(IngressReason::samePort) ||
                                              reason == static_cast<U32>(IngressReason::badFcs));
}

} // namespace

void ReasonRates::take(const std::vector<Silo::Entry<Record>>& entries, double now, const Limits& limits) {
   ++round_;
   for (const Silo::Entry<Record>& entry : entries) {
      if (entry.result != Silo::ReadResult::ok) {
         continue;
      }
      const Record& read = entry.sample.record;
      auto found = ports_.find(entry.key.view());
      const bool isNew = found == ports_.end() || found->second.record.createdTime != read.createdTime;
      if (found == ports_.end()) {
         found = ports_.emplace(String(entry.key.view()), Port{}).first;
      }
      Port& port = found->second;
      for (std::size_t i = 0; i < Record::placeCount; ++i) {
         const double seconds = read.readTimes[i] - port.record.readTimes[i];
         const U64 before = port.record.totals[i][0];
         const U64 total = read.totals[i][0];
         const bool isOfNow =
              seconds >= 0 && seconds <= limits.apart && now - read.readTimes[i] <= limits.age;
         if (isNew || port.record.readTimes[i] == 0 || total < before || !isOfNow) {
            port.rates[i].reset();
         } else if (seconds > 0) {
            port.rates[i] = static_cast<double>(total - before) / seconds;
         }
      }
      port.record = read;
      port.round = round_;
   }
   std::erase_if(ports_, [&](const auto& one) { return one.second.round != round_; });
}

std::vector<ReasonDrops> ReasonRates::of(const String& intf, bool isOfNow) const {
   std::vector<ReasonDrops> drops;
   const auto found = ports_.find(intf);
   if (found == ports_.end()) {
      return drops;
   }
   for (const ZlDrop::Point point : {ZlDrop::Point::ingress, ZlDrop::Point::egress}) {
      const ZlDrop::Table& table = ZlDrop::tables[static_cast<std::size_t>(point)];
      for (U32 reason = 0; reason < ZlDrop::reasonsPerPort; ++reason) {
         const std::size_t place = Record::place(point, reason);
         const U64 total = found->second.record.totals[place][0];
         if (total != 0) {
            drops.push_back({table.point,
                             reason < table.reasons.size() ? String(table.reasons[reason])
                                                           : "reason " + std::to_string(reason),
                             total, isOfNow ? found->second.rates[place] : std::nullopt,
                             !isApart(point, reason)});
         }
      }
   }
   return drops;
}

} // namespace ZelExporter

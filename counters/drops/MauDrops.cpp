// Reads the drops of every place in every pipe. The hardware has no port in them, so an interface stands for its pipe.
#include "counters/drops/MauDrops.h"

#include "counters/chip/SdkStatus.h"
#include "counters/chip/ZelCountersTrace.h"
#include "sdk/bf_pipe.h"
#include "vex/PublishedChip.h"

#include <string>

namespace ZelCounter {

namespace {

using Holds = TableView::Holds;

constexpr auto& names = Silo::Interface::PipeDropCounters::placeNames;

// In the order in which a frame passes them, which is that of the names.
struct DropPlace {
   const char* decides;
   bool isDeparser;
   U32 number; // stage, or direction
};

constexpr std::array places = {
     DropPlace{"ingress port check", false, BF_PIPE_MAU_INGRESS_PORT_CHECK},
     DropPlace{"QoS policy", false, BF_PIPE_MAU_QOS_POLICY},
     DropPlace{"ingress ACL", false, BF_PIPE_MAU_INGRESS_ACL},
     DropPlace{"forwarding", false, BF_PIPE_MAU_FORWARDING},
     DropPlace{"no egress port", true, BF_PIPE_INGRESS},
     DropPlace{"egress port check", false, BF_PIPE_MAU_EGRESS_PORT_CHECK},
     DropPlace{"egress ACL", false, BF_PIPE_MAU_EGRESS_ACL},
     DropPlace{"MTU exceeded", true, BF_PIPE_EGRESS},
};
static_assert(places.size() == names.size() &&
              places.size() == std::size_t{BF_PIPE_MAU_STAGES} + BF_PIPE_DIRECTIONS);

} // namespace

bf_status_t MauDrops::read(ZelId::ZelDevId device, U16 pipe, std::size_t place, U64* drops) {
   uint64_t count = 0;
   const bf_status_t status = places[place].isDeparser
                                   ? bf_pipe_deparser_drop_get(device, pipe, places[place].number, &count)
                                   : bf_pipe_mau_drop_get(device, pipe, places[place].number, &count);
   *drops = count;
   return status;
}

void MauDrops::fetchAll() {
   // The show or clear that follows answers for a chip that isn't initialized.
   if (!chip().initialized()) {
      return;
   }
   errors_.clear();
   for (const U16 pipe : chip().pipes()) {
      for (std::size_t at = 0; at < places.size(); ++at) {
         const std::size_t place = pipe * places.size() + at;
         U64 drops = 0;
         const bf_status_t status = read(chip().deviceId(), pipe, at, &drops);
         chip().readings().attempted({ReadingKey::Kind::mauDeparser, static_cast<U32>(at), pipe}, status);
         if (status == BF_SUCCESS) {
            counts_.read(place, chip().life(), {drops});
         } else {
            errors_.emplace_back(pipe, pipeReadErrorText(status, pipe) + ", " + names[at] +
                                            shownInstead(counts_, place));
            KILN_TRACE(4, errors_.back().second);
         }
      }
   }
   isFetched_ = true; // also after errors, of which the view has notes
}

TableView MauDrops::view(const Pelt::IntfId& intf, std::optional<U16> pipe, bool nonZeroOnly) const {
   TableView table{"MAU and deparser drops, chip " + chip().chipName(),
                   {{"Pipe", Holds::number, 4},
                    {"Place", Holds::text, 16},
                    {"Decides", Holds::text, 18},
                    {"Packets", Holds::counter, 16}}};
   if (!intf.empty()) {
      if (!chip().hasPort(intf)) {
         table.notes.push_back("Interface " + intf.text() + " has no port on chip " + chip().chipName());
         return table;
      }
      pipe = chip().systemStatus()->portInfo(intf).pipe();
      table.notes.push_back("Pipe " + std::to_string(*pipe) + " is that of " + intf.text() +
                            ", shared by all its ports");
   }
   if (!isFetched_) {
      table.notes.emplace_back("MAU and deparser drops not fetched yet");
      return table;
   }
   table.isSinceClear = true;
   for (const U16 onPipe : chip().pipes(pipe)) {
      for (std::size_t at = 0; at < places.size(); ++at) {
         table.readings.push_back(told(pipeText(onPipe),
                                       {ReadingKey::Kind::mauDeparser, static_cast<U32>(at), onPipe},
                                       counts_.cleared()));
         const std::size_t index = onPipe * places.size() + at;
         // A count that was never read is not known to be 0.
         if (!nonZeroOnly || counts_.sinceClear(index) != 0 || !counts_.isRead(index)) {
            table.rows.push_back({U64{onPipe}, Kiln::String(names[at]), Kiln::String(places[at].decides),
                                  cellOf(counts_, index)});
         }
      }
   }
   for (const auto& [onPipe, error] : errors_) {
      if (!pipe || onPipe == *pipe) {
         table.notes.push_back(error);
      }
   }
   return table;
}

void MauDrops::showAll(ShowOutput& out, bool nonZeroOnly, std::optional<U16> pipe) const {
   if (!answeredUninitialized(out)) {
      out.view(view({}, pipe, nonZeroOnly));
   }
}

void MauDrops::show(ShowOutput& out, const Pelt::IntfId& intf, bool nonZeroOnly) const {
   if (!answeredUninitialized(out)) {
      out.view(view(intf, {}, nonZeroOnly));
   }
}

void MauDrops::clearAll(ShowOutput& out) {
   if (answeredUninitialized(out)) {
      return;
   }
   for (const auto& [pipe, error] : errors_) {
      tellErrors(out, {error});
   }
   counts_.clear();
}

} // namespace ZelCounter

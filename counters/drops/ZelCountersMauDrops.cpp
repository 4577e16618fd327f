// The drops in the match-action units and deparsers of a chip.
#include "counters/ZelCounters.h"
#include "counters/chip/SdkStatus.h"
#include "counters/chip/ZelCountersTrace.h"
#include "counters/show/TextShow.h"
#include "sdk/bf_pipe.h"

#include <string>

namespace ZelCounter {

namespace {

using Holds = TableView::Holds;

// In the order in which a frame passes them.
struct DropPlace {
   const char* name;
   const char* decides;
   bool isDeparser;
   U32 number; // stage, or direction
};

constexpr std::array places = {
     DropPlace{"stage 0", "ingress port check", false, BF_PIPE_MAU_INGRESS_PORT_CHECK},
     DropPlace{"stage 1", "QoS policy", false, BF_PIPE_MAU_QOS_POLICY},
     DropPlace{"stage 2", "ingress ACL", false, BF_PIPE_MAU_INGRESS_ACL},
     DropPlace{"stage 3", "forwarding", false, BF_PIPE_MAU_FORWARDING},
     DropPlace{"ingress deparser", "no egress port", true, BF_PIPE_INGRESS},
     DropPlace{"stage 4", "egress port check", false, BF_PIPE_MAU_EGRESS_PORT_CHECK},
     DropPlace{"stage 5", "egress ACL", false, BF_PIPE_MAU_EGRESS_ACL},
     DropPlace{"egress deparser", "MTU exceeded", true, BF_PIPE_EGRESS},
};
static_assert(places.size() == std::size_t{BF_PIPE_MAU_STAGES} + BF_PIPE_DIRECTIONS);

bf_status_t read(bf_dev_id_t dev, U16 pipe, const DropPlace& place, uint64_t* drops) {
   return place.isDeparser ? bf_pipe_deparser_drop_get(dev, pipe, place.number, drops)
                           : bf_pipe_mau_drop_get(dev, pipe, place.number, drops);
}

} // namespace

void ZelCounters::fetchAllMauDropCounters() {
   if (!initialized()) {
      return;
   }
   mauDropErrors_.clear();
   for (U32 pipe = 0; pipe <= highestPipe(); ++pipe) {
      for (std::size_t at = 0; at < places.size(); ++at) {
         uint64_t drops = 0;
         const bf_status_t status = read(deviceId(), static_cast<U16>(pipe), places[at], &drops);
         if (status == BF_SUCCESS) {
            mauDropCounts_.lastIs(pipe * places.size() + at, drops);
         } else {
            mauDropErrors_.emplace_back(pipe, pipeReadErrorText(status, pipe) + ", " + places[at].name);
            KILN_TRACE(4, mauDropErrors_.back().second);
         }
      }
   }
   mauDropsFetched_ = true;
}

TableView ZelCounters::mauDropView(const Pelt::IntfId& intf, std::optional<U16> pipe, bool nonZeroOnly) {
   TableView view{"MAU and deparser drops since the last clear, chip " + chipName(),
                  {{"Pipe", Holds::number, 4},
                   {"Place", Holds::text, 16},
                   {"Decides", Holds::text, 18},
                   {"Packets", Holds::counter, 16}}};
   if (!intf.empty()) {
      const ZelSystem::PortRecord& port = systemStatus()->portInfo(intf);
      if (port.devId != deviceId()) {
         view.notes.push_back("Interface " + intf.text() + " has no port on chip " + chipName());
         return view;
      }
      pipe = port.pipe();
      view.notes.push_back("Pipe " + std::to_string(*pipe) + " is that of " + intf.text() +
                           ", shared by all its ports");
   }
   if (!mauDropsFetched_) {
      view.notes.emplace_back("MAU and deparser drops not fetched yet");
      return view;
   }
   for (U32 onPipe = pipe.value_or(0); onPipe <= (pipe ? *pipe : highestPipe()); ++onPipe) {
      for (std::size_t at = 0; at < places.size(); ++at) {
         const std::size_t index = onPipe * places.size() + at;
         if (!nonZeroOnly || mauDropCounts_.sinceClear(index) != 0) {
            view.rows.push_back({U64{onPipe}, Kiln::String(places[at].name), Kiln::String(places[at].decides),
                                 mauDropCounts_.cell(index)});
         }
      }
   }
   for (const auto& [onPipe, error] : mauDropErrors_) {
      if (!pipe || onPipe == *pipe) {
         view.notes.push_back(error + ": shown as last read");
      }
   }
   return view;
}

void ZelCounters::showAllMauDropCounters(U32 fd, bool nonZeroOnly, std::optional<U16> pipe) {
   TextShow out(fd, echo());
   showAllMauDropCounters(out, nonZeroOnly, pipe);
}

void ZelCounters::showAllMauDropCounters(ShowOutput& out, bool nonZeroOnly, std::optional<U16> pipe) {
   showView(out, [&] { return mauDropView({}, pipe, nonZeroOnly); });
}

void ZelCounters::showMauDropCounters(U32 fd, const Pelt::IntfId& intf, bool nonZeroOnly) {
   TextShow out(fd, echo());
   showMauDropCounters(out, intf, nonZeroOnly);
}

void ZelCounters::showMauDropCounters(ShowOutput& out, const Pelt::IntfId& intf, bool nonZeroOnly) {
   showView(out, [&] { return mauDropView(intf, {}, nonZeroOnly); });
}

void ZelCounters::clearAllMauDropCounters(U32 fd) {
   clearWith(fd, [this] { mauDropCounts_.clear(); });
}

} // namespace ZelCounter

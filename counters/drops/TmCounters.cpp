// Keeps and shows what the pollers read.
#include "counters/drops/TmCounters.h"

#include "counters/chip/SdkStatus.h"
#include "sdk/bf_tm.h"
#include "vex/PublishedChip.h"

#include <algorithm>
#include <string>
#include <utility>

namespace ZelCounter {

namespace {

using Holds = TableView::Holds;
using ZelQos::TmCounter;

using Places = Silo::Interface::PipeTmCounters;

// The SDK's type of each place.
constexpr std::array<U32, Places::placeCount> types = {
     BF_TM_PIPE_INGRESS,     BF_TM_PIPE_EGRESS, BF_TM_PIPE_DROPS,    BF_TM_PIPE_MULTICAST,
     BF_TM_PIPE_CUT_THROUGH, BF_TM_PIPE_CELLS,  BF_TM_PIPE_WATERMARK};

constexpr bool isShown(U32 polled) {
   return std::find(types.begin(), types.end(), polled) != types.end();
}
static_assert(types.size() == polledTmCounterTypes.size() &&
              std::all_of(polledTmCounterTypes.begin(), polledTmCounterTypes.end(), isShown));

constexpr const char* readState = "ok";

std::size_t placeOf(U16 pipe, U32 type) {
   return std::size_t{pipe} * ZelQos::tmCounterTypes + type;
}

Kiln::String stateOf(const TmCounter& counter) {
   if (counter.status != 0) {
      return sdkErrorText(counter.status);
   }
   return counter.isRead ? readState : "not read yet";
}

Kiln::String stateText(U16 pipe, std::size_t place, const TmCounter& counter) {
   return "Pipe " + std::to_string(pipe) + ", " + Places::placeNames[place] + ": " + stateOf(counter);
}

} // namespace

TmCounters::TmCounters(ChipAccess& chip, Kiln::Ptr<ZelQos::TmCountersData> last,
                       Kiln::Ptr<ZelQos::TmCountersData> lastClear,
                       const Kiln::Ptr<CliPortDropData>& dropData)
     : ChipView(chip), last_(std::move(last)), lastClear_(std::move(lastClear)), data_(dropData),
       counts_(dropData->pipeCountsIs(chip.deviceId()).trafficManager) {
   // What an earlier chip of this device id left says nothing of this one.
   for (const auto& data : {last_, lastClear_}) {
      if (data) {
         data->countersByDevIdIs(chip.deviceId())->countersByPipeDelAll();
      }
   }
   for (const U16 pipe : chip.pipes()) {
      if (last_) {
         last_->countersByDevIdIs(chip.deviceId())->countersByPipeIs(pipe);
      }
   }
}

const Kiln::Ptr<PipeTmCounterSm>& TmCounters::pipeTmCounterSmIs(const PipeTmCounterKey& key, U32 physicalPipe,
                                                                Kiln::Ptr<const Kiln::Clock> clock) {
   if (!pipeTmCounterSm_.contains(key)) {
      pipeTmCounterSm_.set(key, Kiln::allocate<PipeTmCounterSm>(this, key, physicalPipe, std::move(clock)));
   }
   return *pipeTmCounterSm_.find(key);
}

void TmCounters::pipeTmCounterSmDelAll() {
   for (const auto& [key, poller] : std::exchange(pipeTmCounterSm_, {})) {
      poller->stop();
   }
}

void TmCounters::counterIs(const PipeTmCounterKey& key, bf_status_t status,
                           const bf_tm_pipe_counter_t& read) {
   chip().readings().attempted({ReadingKey::Kind::trafficManager, key.counterType, key.pipe}, status);
   if (!last_) {
      return;
   }
   TmCounter& counter = last_->countersByDevIdIs(deviceId())->countersByPipeIs(key.pipe)[key.counterType];
   counter.status = status; // beside the values: those of the last good read are still shown
   if (status != BF_SUCCESS) {
      return;
   }
   counter = {read.count, read.bytes, status, true};
   counts_.read(placeOf(key.pipe, key.counterType), chip().life(), {read.count, read.bytes});
}

TmCounters::Polled TmCounters::polled(U16 pipe, std::size_t place) const {
   if (!last_) {
      return {};
   }
   const TmCounter& counter = last_->countersByDevIdIs(deviceId())->countersByPipeIs(pipe)[types[place]];
   const Reading& reading = chip().readings().reading({ReadingKey::Kind::trafficManager, types[place], pipe});
   return {counter.isRead, counter.count, counter.bytes, reading.readTime};
}

void TmCounters::readAll() {
   for (const auto& [key, poller] : pipeTmCounterSm_) {
      poller->poll();
   }
}

TableView TmCounters::view(std::optional<U16> pipe, bool nonZeroOnly) const {
   TableView table{"Traffic manager, chip " + chip().chipName(),
                   {{"Pipe", Holds::number, 4},
                    {"Counter", Holds::text, 21},
                    {"Packets or cells", Holds::counter, 16},
                    {"Bytes", Holds::counter, 18},
                    {"State", Holds::remark, 12}}};
   if (!last_) {
      table.notes.emplace_back("No traffic-manager counters are kept");
      return table;
   }
   table.isSinceClear = true;
   const auto last = last_->countersByDevIdIs(deviceId());
   for (const U16 onPipe : chip().pipes(pipe)) {
      for (std::size_t at = 0; at < types.size(); ++at) {
         const U32 type = types[at];
         const bool isTotal = !Places::isLevel(at); // a clear leaves a level as it is
         table.readings.push_back(
              told(pipeText(onPipe), {ReadingKey::Kind::trafficManager, type, onPipe}, counts_.cleared()));
         const TmCounter& now = last->countersByPipeIs(onPipe)[type];
         const std::size_t place = placeOf(onPipe, type);
         const U64 count = isTotal ? counts_.sinceClear(place, 0) : now.count;
         const Kiln::String state = stateOf(now);
         // Shown with nonzero, too, when it could not be read: its 0 says nothing.
         if (nonZeroOnly && count == 0 && state == readState) {
            continue;
         }
         const auto cell = [&](U64 number) {
            return now.isRead ? TableView::Cell(number) : TableView::Unread();
         };
         table.rows.push_back({U64{onPipe}, Kiln::String(Places::placeNames[at]), cell(count),
                               isTotal ? cell(counts_.sinceClear(place, 1)) : TableView::Unsupported(),
                               state});
         if (state != readState) {
            table.unprintedNotes.push_back(stateText(onPipe, at, now));
         }
      }
   }
   return table;
}

void TmCounters::showAll(ShowOutput& out, bool nonZeroOnly, std::optional<U16> pipe) const {
   if (!answeredUninitialized(out)) {
      out.view(view(pipe, nonZeroOnly));
   }
}

void TmCounters::clearAll(ShowOutput& out) {
   if (answeredUninitialized(out) || !last_ || !lastClear_) {
      return;
   }
   // Cleared as polled last. Where that failed, what was counted since will be shown.
   const auto last = last_->countersByDevIdIs(deviceId());
   for (const U16 pipe : chip().pipes()) {
      for (std::size_t at = 0; at < types.size(); ++at) {
         const TmCounter& counter = last->countersByPipeIs(pipe)[types[at]];
         if (!Places::isLevel(at) && counter.status != 0) {
            tellErrors(out, {stateText(pipe, at, counter)});
         }
      }
   }
   lastClear_->countersByDevIdIs(deviceId())->countersAre(*last);
   counts_.clear();
}

} // namespace ZelCounter

// The traffic-manager commands of a chip, over what its pollers read.
#include "counters/ZelCounters.h"
#include "counters/chip/SdkStatus.h"
#include "counters/show/TextShow.h"
#include "sdk/bf_tm.h"

#include <algorithm>
#include <string>

namespace ZelCounter {

namespace {

using Holds = TableView::Holds;
using ZelQos::TmCounter;

struct TmType {
   U32 type;
   const char* name;
   bool isTotal; // and not a level of the buffer, which a clear leaves as it is
};

constexpr std::array tmTypes = {
     TmType{BF_TM_PIPE_INGRESS, "in from the pipe", true},
     TmType{BF_TM_PIPE_EGRESS, "out to the pipe", true},
     TmType{BF_TM_PIPE_DROPS, "dropped", true},
     TmType{BF_TM_PIPE_MULTICAST, "multicast copies", true},
     TmType{BF_TM_PIPE_CUT_THROUGH, "cut through", true},
     TmType{BF_TM_PIPE_CELLS, "cells in use", false},
     TmType{BF_TM_PIPE_WATERMARK, "cells of a port, peak", false},
};

constexpr bool isShown(U32 polled) {
   return std::any_of(tmTypes.begin(), tmTypes.end(),
                      [polled](const TmType& type) { return type.type == polled; });
}
static_assert(tmTypes.size() == polledTmCounterTypes.size() &&
              std::all_of(polledTmCounterTypes.begin(), polledTmCounterTypes.end(), isShown));

constexpr const char* readState = "ok";

Kiln::String stateOf(const TmCounter& counter) {
   if (counter.status != 0) {
      return sdkErrorText(counter.status);
   }
   return counter.isRead ? readState : "not read yet";
}

} // namespace

void ZelCounters::resetTmCounters() {
   for (const auto& data : {context_.tmCountersData, context_.tmCountersDataLastClear}) {
      if (data) {
         data->countersByDevIdIs(deviceId())->countersByPipeDelAll();
      }
   }
   for (U32 pipe = 0; context_.tmCountersData && pipe <= highestPipe(); ++pipe) {
      context_.tmCountersData->countersByDevIdIs(deviceId())->countersByPipeIs(static_cast<U16>(pipe));
   }
}

void ZelCounters::tmCounterIs(const PipeTmCounterKey& key, bf_status_t status,
                              const bf_tm_pipe_counter_t& read) {
   if (!context_.tmCountersData) {
      return;
   }
   TmCounter& counter =
        context_.tmCountersData->countersByDevIdIs(deviceId())->countersByPipeIs(key.pipe)[key.counterType];
   counter.status = status;
   if (status != BF_SUCCESS) {
      return;
   }
   counter = {read.count, read.bytes, status, true};
   if (context_.tmCountersDataLastClear) {
      TmCounter& clear = context_.tmCountersDataLastClear->countersByDevIdIs(deviceId())
                              ->countersByPipeIs(key.pipe)[key.counterType];
      if (clear.count > counter.count || clear.bytes > counter.bytes) {
         clear = {}; // the hardware has begun anew
      }
   }
}

TableView ZelCounters::tmView(std::optional<U16> pipe, bool nonZeroOnly) {
   TableView view{"Traffic manager since the last clear, chip " + chipName(),
                  {{"Pipe", Holds::number, 4},
                   {"Counter", Holds::text, 21},
                   {"Packets or cells", Holds::counter, 16},
                   {"Bytes", Holds::counter, 18},
                   {"State", Holds::remark, 12}}};
   if (!context_.tmCountersData) {
      view.notes.emplace_back("No traffic-manager counters are kept");
      return view;
   }
   const auto last = context_.tmCountersData->countersByDevIdIs(deviceId());
   const auto clear = context_.tmCountersDataLastClear
                           ? context_.tmCountersDataLastClear->countersByDevIdIs(deviceId())
                           : Kiln::allocate<ZelQos::TmDeviceCounters>(deviceId());
   for (U32 onPipe = pipe.value_or(0); onPipe <= (pipe ? *pipe : highestPipe()); ++onPipe) {
      const auto pipeId = static_cast<U16>(onPipe);
      for (const TmType& type : tmTypes) {
         const TmCounter& now = last->countersByPipeIs(pipeId)[type.type];
         const TmCounter& then = clear->countersByPipeIs(pipeId)[type.type];
         const U64 count = type.isTotal ? now.count - then.count : now.count;
         const Kiln::String state = stateOf(now);
         if (nonZeroOnly && count == 0 && state == readState) {
            continue;
         }
         const auto cell = [&](U64 number) {
            return now.isRead ? TableView::Cell(number) : TableView::Unread();
         };
         view.rows.push_back({U64{onPipe}, Kiln::String(type.name), cell(count),
                              type.isTotal ? cell(now.bytes - then.bytes) : Kiln::String("-"), state});
         if (state != readState) {
            view.unprintedNotes.push_back("Pipe " + std::to_string(onPipe) + ", " + type.name + ": " + state);
         }
      }
   }
   return view;
}

void ZelCounters::showAllTmCounters(U32 fd, bool nonZeroOnly, std::optional<U16> pipe) {
   TextShow out(fd, echo());
   showAllTmCounters(out, nonZeroOnly, pipe);
}

void ZelCounters::showAllTmCounters(ShowOutput& out, bool nonZeroOnly, std::optional<U16> pipe) {
   showView(out, [&] { return tmView(pipe, nonZeroOnly); });
}

void ZelCounters::clearAllTmCounters(U32 fd) {
   clearWith(fd, [this] {
      if (context_.tmCountersData && context_.tmCountersDataLastClear) {
         context_.tmCountersDataLastClear->countersByDevIdIs(deviceId())
              ->countersAre(*context_.tmCountersData->countersByDevIdIs(deviceId()));
      }
   });
}

} // namespace ZelCounter

// The packet-path counters of a chip: how many packets each stage of its pipes took in, passed on and dropped.
#include "counters/ZelCounters.h"
#include "counters/chip/SdkStatus.h"
#include "counters/chip/ZelCountersTrace.h"
#include "counters/show/TextShow.h"
#include "kiln/Assert.h"
#include "sdk/bf_pipe.h"

namespace ZelCounter {

namespace {

using Holds = TableView::Holds;

constexpr std::array stageNames = {"port-rx",         "parser", "ingress",         "ingress-deparser",
                                   "traffic-manager", "egress", "egress-deparser", "port-tx"};
static_assert(stageNames.size() == BF_PIPE_PATH_STAGES);

constexpr std::size_t countsPerStage = 3; // in, out, dropped

std::size_t indexOf(U32 pipe, U32 stage) {
   return (std::size_t{pipe} * BF_PIPE_PATH_STAGES + stage) * countsPerStage;
}

} // namespace

std::span<const char* const> ZelCounters::pipelineStages() {
   return stageNames;
}

// Empty, or what went wrong.
Kiln::String ZelCounters::readPipelineStage(U32 pipe, U32 stage) {
   bf_pipe_path_count_t count{};
   const bf_status_t status = bf_pipe_path_counter_get(deviceId(), static_cast<U16>(pipe), stage, &count);
   if (status != BF_SUCCESS) {
      Kiln::String error = pipeReadErrorText(status, pipe) + ", stage " + stageNames[stage];
      KILN_TRACE(4, error);
      return error;
   }
   const std::size_t index = indexOf(pipe, stage);
   pipelineCounts_.lastIs(index, count.in);
   pipelineCounts_.lastIs(index + 1, count.out);
   pipelineCounts_.lastIs(index + 2, count.dropped);
   return "";
}

TableView ZelCounters::pipelineView(std::optional<U32> stage, std::optional<U16> pipe, bool nonZeroOnly) {
   KILN_ASSERT(!stage || *stage < stageNames.size());
   TableView view{"Packets by pipeline stage since the last clear, chip " + chipName(),
                  {{"Pipe", Holds::number, 4},
                   {"Stage", Holds::text, 16},
                   {"In", Holds::counter, 16},
                   {"Out", Holds::counter, 16},
                   {"Dropped", Holds::counter, 16}}};
   for (U32 onPipe = pipe.value_or(0); onPipe <= (pipe ? *pipe : highestPipe()); ++onPipe) {
      for (U32 at = stage.value_or(0); at <= (stage ? *stage : stageNames.size() - 1); ++at) {
         const Kiln::String error = readPipelineStage(onPipe, at);
         if (!error.empty()) {
            view.notes.push_back(error + ": shown as last read");
         }
         const std::size_t index = indexOf(onPipe, at);
         const U64 in = pipelineCounts_.sinceClear(index);
         const U64 out = pipelineCounts_.sinceClear(index + 1);
         const U64 dropped = pipelineCounts_.sinceClear(index + 2);
         if (!nonZeroOnly || in != 0 || out != 0 || dropped != 0) {
            view.rows.push_back({U64{onPipe}, Kiln::String(stageNames[at]), pipelineCounts_.cell(index),
                                 pipelineCounts_.cell(index + 1), pipelineCounts_.cell(index + 2)});
         }
      }
   }
   return view;
}

void ZelCounters::showAllPipelineCounters(U32 fd, bool nonZeroOnly, std::optional<U16> pipe) {
   TextShow out(fd, echo());
   showAllPipelineCounters(out, nonZeroOnly, pipe);
}

void ZelCounters::showAllPipelineCounters(ShowOutput& out, bool nonZeroOnly, std::optional<U16> pipe) {
   showView(out, [&] { return pipelineView({}, pipe, nonZeroOnly); });
}

void ZelCounters::showPipelineCounters(U32 fd, U32 stage, bool nonZeroOnly, std::optional<U16> pipe) {
   TextShow out(fd, echo());
   showPipelineCounters(out, stage, nonZeroOnly, pipe);
}

void ZelCounters::showPipelineCounters(ShowOutput& out, U32 stage, bool nonZeroOnly,
                                       std::optional<U16> pipe) {
   showView(out, [&] { return pipelineView(stage, pipe, nonZeroOnly); });
}

void ZelCounters::clearAllPipelineCounters(U32 fd) {
   clearWith(fd, [this] {
      for (U32 pipe = 0; pipe <= highestPipe(); ++pipe) {
         for (U32 stage = 0; stage < stageNames.size(); ++stage) {
            readPipelineStage(pipe, stage);
         }
      }
      pipelineCounts_.clear();
   });
}

} // namespace ZelCounter

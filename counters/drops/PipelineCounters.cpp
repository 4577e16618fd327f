// Reads a pipe's stages in the order in which frames pass them.
#include "counters/drops/PipelineCounters.h"

#include "counters/chip/SdkStatus.h"
#include "counters/chip/ZelCountersTrace.h"
#include "kiln/Assert.h"
#include "sdk/bf_pipe.h"
#include "vex/PublishedChip.h"

namespace ZelCounter {

namespace {

using Holds = TableView::Holds;

constexpr auto& stageNames = Silo::Interface::PipeStageCounters::placeNames;
static_assert(stageNames.size() == BF_PIPE_PATH_STAGES);

std::size_t placeOf(U16 pipe, U32 stage) {
   return std::size_t{pipe} * BF_PIPE_PATH_STAGES + stage;
}

} // namespace

std::span<const char* const> PipelineCounters::stages() {
   return stageNames;
}

// The three counts come of one call, so that in, out and dropped of a stage are of the same moment.
Kiln::String PipelineCounters::read(U16 pipe, U32 stage) {
   bf_pipe_path_count_t count{};
   const bf_status_t status = bf_pipe_path_counter_get(chip().deviceId(), pipe, stage, &count);
   chip().readings().attempted({ReadingKey::Kind::pipeline, stage, pipe}, status);
   if (status != BF_SUCCESS) {
      Kiln::String error = pipeReadErrorText(status, pipe) + ", stage " + stageNames[stage] +
                           shownInstead(counts_, placeOf(pipe, stage));
      KILN_TRACE(4, error);
      return error;
   }
   counts_.read(placeOf(pipe, stage), chip().life(), {count.in, count.out, count.dropped});
   return "";
}

TableView PipelineCounters::view(std::optional<U32> stage, std::optional<U16> pipe, bool nonZeroOnly) {
   KILN_ASSERT(!stage || *stage < stageNames.size());
   TableView table{"Packets by pipeline stage, chip " + chip().chipName(),
                   {{"Pipe", Holds::number, 4},
                    {"Stage", Holds::text, 16},
                    {"In", Holds::counter, 16},
                    {"Out", Holds::counter, 16},
                    {"Dropped", Holds::counter, 16}}};
   table.isSinceClear = true;
   for (const U16 onPipe : chip().pipes(pipe)) {
      for (U32 at = stage.value_or(0); at <= (stage ? *stage : stageNames.size() - 1); ++at) {
         const Kiln::String error = read(onPipe, at);
         if (!error.empty()) {
            table.notes.push_back(error);
         }
         table.readings.push_back(
              told(pipeText(onPipe), {ReadingKey::Kind::pipeline, at, onPipe}, counts_.cleared()));
         const std::size_t place = placeOf(onPipe, at);
         const U64 any =
              counts_.sinceClear(place, 0) | counts_.sinceClear(place, 1) | counts_.sinceClear(place, 2);
         // A count that was never read is not known to be 0.
         if (!nonZeroOnly || any != 0 || !counts_.isRead(place)) {
            table.rows.push_back({U64{onPipe}, Kiln::String(stageNames[at]), cellOf(counts_, place, 0),
                                  cellOf(counts_, place, 1), cellOf(counts_, place, 2)});
         }
      }
   }
   return table;
}

void PipelineCounters::showAll(ShowOutput& out, bool nonZeroOnly, std::optional<U16> pipe) {
   if (!answeredUninitialized(out)) {
      out.view(view({}, pipe, nonZeroOnly));
   }
}

void PipelineCounters::show(ShowOutput& out, U32 stage, bool nonZeroOnly, std::optional<U16> pipe) {
   if (!answeredUninitialized(out)) {
      out.view(view(stage, pipe, nonZeroOnly));
   }
}

void PipelineCounters::clearAll(ShowOutput& out) {
   if (answeredUninitialized(out)) {
      return;
   }
   // What passed since the last read belongs to the time before the clear. A failed read leaves its stage's last counts
   // to be cleared: the packets since then will show after the clear.
   tellErrors(out, readAll());
   counts_.clear();
}

std::vector<Kiln::String> PipelineCounters::readAll() {
   std::vector<Kiln::String> errors;
   for (const U16 pipe : chip().pipes()) {
      for (U32 stage = 0; stage < stageNames.size(); ++stage) {
         const Kiln::String error = read(pipe, stage);
         if (!error.empty()) {
            errors.push_back(error);
         }
      }
   }
   return errors;
}

} // namespace ZelCounter

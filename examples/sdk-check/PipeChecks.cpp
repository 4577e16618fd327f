// Pipes: their numbers, the way of frames, and the traffic manager.
#include "Kit.h"
#include "sdk/bf_pipe.h"
#include "sdk/bf_tm.h"
#include "sdk/lld.h"

#include <set>

namespace SdkCheck {

namespace {

constexpr U32 highestPhysicalPipe = 3;
constexpr U32 tmTypes[] = {BF_TM_PIPE_INGRESS,    BF_TM_PIPE_EGRESS,    BF_TM_PIPE_DROPS,
                           BF_TM_PIPE_CELLS,      BF_TM_PIPE_WATERMARK, BF_TM_PIPE_MULTICAST,
                           BF_TM_PIPE_CUT_THROUGH};

// Each logical pipe's physical one, as far as the SDK says.
std::vector<U32> checkMap(Kit& kit) {
   std::vector<U32> physical;
   int status = 0;
   bool isValid = true;
   for (unsigned pipe = 0; pipe < kit.target.pipes && status == 0; ++pipe) {
      U32 mapped = 0;
      status = lld_sku_map_pipe_id_to_phy_pipe_id(kit.target.device, pipe, &mapped);
      physical.push_back(mapped);
      isValid = isValid && mapped <= highestPhysicalPipe;
   }
   const bool isDistinct = std::set<U32>(physical.begin(), physical.end()).size() == physical.size();
   std::string came = statusText(status);
   for (const U32 pipe : physical) {
      came += ", " + std::to_string(pipe);
   }
   kit.report.check(status == 0 && isValid && isDistinct, "physical pipes",
                    "status 0 and a different pipe of 0 to 3 for each logical one", came);
   return physical;
}

// The first status other than 0 of count reads, or 0.
template <class Read>
int firstFailure(U32 count, Read read) {
   int status = 0;
   for (U32 i = 0; i < count && status == 0; ++i) {
      status = read(i);
   }
   return status;
}

} // namespace

// None of these statuses is fatal: what can't be read is shown as such.
void checkPipes(Kit& kit) {
   const std::vector<U32> physical = checkMap(kit);
   const bf_dev_id_t device = kit.target.device;
   for (unsigned pipe = 0; pipe < kit.target.pipes; ++pipe) {
      const std::string of = ", pipe " + std::to_string(pipe);
      const auto onPipe = static_cast<uint16_t>(pipe);
      bf_tm_pipe_counter_t tm{};
      const auto readTm = [&](U32 i) {
         return bf_tm_pipe_counter_get(device, static_cast<uint16_t>(physical[pipe]), tmTypes[i], &tm);
      };
      kit.report.checkStatus(pipe < physical.size() ? firstFailure(std::size(tmTypes), readTm) : -1,
                             "traffic-manager counters" + of,
                             "status 0 for the types 0, 1, 2, 4, 6, 7 and 8");
      bf_pipe_path_count_t path{};
      kit.report.checkStatus(
           firstFailure(BF_PIPE_PATH_STAGES,
                        [&](U32 stage) { return bf_pipe_path_counter_get(device, onPipe, stage, &path); }),
           "pipeline counters" + of, "status 0 for the stages 0 to 7");
      uint64_t drops = 0;
      kit.report.checkStatus(
           firstFailure(BF_PIPE_MAU_STAGES,
                        [&](U32 stage) { return bf_pipe_mau_drop_get(device, onPipe, stage, &drops); }),
           "match-action drops" + of, "status 0 for the stages 0 to 5");
      kit.report.checkStatus(firstFailure(BF_PIPE_DIRECTIONS,
                                          [&](U32 direction) {
                                             return bf_pipe_deparser_drop_get(device, onPipe, direction,
                                                                              &drops);
                                          }),
                             "deparser drops" + of, "status 0 for both directions");
   }
   // Of a port where the traffic manager counts packets as they arrive.
   if (kit.hooks.receive) {
      const auto pipe = static_cast<uint16_t>(kit.target.port / 128);
      bf_pipe_path_count_t before{};
      bf_pipe_path_count_t after{};
      const int status = bf_pipe_path_counter_get(kit.target.device, pipe, BF_PIPE_PATH_PORT_RX, &before);
      if (status != 0) {
         kit.report.checkStatus(status, "10 frames received, pipeline", "status 0");
         return;
      }
      kit.hooks.receive(kit.target.port, 10, 100);
      bf_pipe_path_counter_get(kit.target.device, pipe, BF_PIPE_PATH_PORT_RX, &after);
      kit.report.check(after.in - before.in == 10, "10 frames received, pipeline", "+10 into stage 0",
                       "+" + std::to_string(after.in - before.in));
   }
}

} // namespace SdkCheck

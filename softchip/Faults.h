// Planned failures and costs of the SDK's entry points.
#pragma once

#include "kiln/Types.h"

#include <array>
#include <atomic>
#include <deque>
#include <mutex>
#include <string_view>

namespace SoftChip {

// The SDK's entry points, by the names in entryPointNames.
enum class EntryPoint : U8 {
   portMacStatsGet,
   tmQueueDropGet,
   tmPipeCounterGet,
   pipePathCounterGet,
   pipeMauDropGet,
   pipeDeparserDropGet,
   mapPipe,
   symmetricModeInitialized,
   symmetricMode,
   tableSetProperty,
   databaseSync,
   entryQuery,
   firstEntryHandle,
   nextEntryHandles,
   syncDirect,
   syncIndirect,
   readDirectStart,
   readDirectMain,
   readDirectEnd,
   readIndirectStart,
   readIndirectMain,
   readIndirectEnd,
   readDirect,
   writeDirect,
   writeIndirect,
   pdEntryAdd,
   pdEntryDel,
   count
};

inline constexpr std::array entryPointNames = {
     "bf_port_mac_stats_hw_async_get",
     "bf_tm_q_drop_get",
     "bf_tm_pipe_counter_get",
     "bf_pipe_path_counter_get",
     "bf_pipe_mau_drop_get",
     "bf_pipe_deparser_drop_get",
     "lld_sku_map_pipe_id_to_phy_pipe_id",
     "pipe_mgr_stat_tbl_symmetric_mode_initialized",
     "pipe_mgr_stat_tbl_symmetric_mode",
     "pipe_mgr_tbl_set_property",
     "pipe_mgr_stat_database_sync",
     "pipe_mgr_stat_ent_query",
     "pipe_mgr_get_first_entry_handle",
     "pipe_mgr_get_next_entry_handles",
     "counterHwSyncDirect",
     "counterHwSyncIndirect",
     "counterReadDirectStart",
     "counterReadDirectMain",
     "counterReadDirectEnd",
     "counterReadIndirectStart",
     "counterReadIndirectMain",
     "counterReadIndirectEnd",
     "counterReadDirect",
     "counterWriteDirect",
     "counterWriteIndirect",
     "pdEntryAdd",
     "pdEntryDel",
};
static_assert(entryPointNames.size() == static_cast<std::size_t>(EntryPoint::count));

// Any thread. Throws std::invalid_argument, listing the entry points, for an unknown one.
class Faults {
 public:
   // The entry point's next `times` calls return this status and do nothing else. Plans queue up. Status 0 lets a call
   // through, so that a later one can be made to fail.
   void failNext(std::string_view entryPoint, int status, U32 times = 1);
   // Every call of the entry point takes this much time. In real time the caller sleeps, until the activity manager is
   // stopped.
   void costIs(std::string_view entryPoint, double seconds);
   void clear();

   // Each call asks once: takes its time and returns the status to fail with, or 0 to go on.
   int next(EntryPoint entryPoint) { return armed_.load(std::memory_order_acquire) ? take(entryPoint) : 0; }

 private:
   struct Run {
      int status;
      U32 times;
   };
   struct Plan {
      std::deque<Run> runs;
      double cost = 0.0;
   };

   int take(EntryPoint entryPoint);
   Plan& planOf(std::string_view entryPoint);

   std::atomic<bool> armed_{false}; // false: all plans are empty, and calls need not take the mutex
   std::mutex mutex_;
   std::array<Plan, entryPointNames.size()> plans_;
};

} // namespace SoftChip

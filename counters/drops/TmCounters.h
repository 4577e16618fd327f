// The traffic manager's counters of a chip, by pipe and kind, and their pollers.
#pragma once

#include "counters/chip/ChipView.h"
#include "counters/drops/CliPortDropData.h"
#include "counters/drops/PipeTmCounterSm.h"
#include "sdk/bf_tm.h"
#include "zel/TmCountersData.h"

namespace ZelCounter {

class TmCounters : public ChipView {
 public:
   // Both are shared with whoever made the manager: the counters as read last, and as at the last clear. Without the
   // first nothing is kept, without the second nothing cleared. What they count is kept in the third, longer than the
   // chip.
   TmCounters(ChipAccess& chip, Kiln::Ptr<ZelQos::TmCountersData> last,
              Kiln::Ptr<ZelQos::TmCountersData> lastClear, const Kiln::Ptr<CliPortDropData>& data);

   ZelId::ZelDevId deviceId() const { return chip().deviceId(); }

   // As polled last.
   void showAll(ShowOutput& out, bool nonZeroOnly, std::optional<U16> pipe = {}) const;
   void clearAll(ShowOutput& out);
   // A counter as polled last, by its place in PipeTmCounters.
   struct Polled {
      bool isRead = false;
      U64 count = 0; // packets or cells
      U64 bytes = 0;
      double time = 0;
   };
   Polled polled(U16 pipe, std::size_t place) const;
   // A poller has read a counter, or failed to.
   void counterIs(const PipeTmCounterKey& key, bf_status_t status, const bf_tm_pipe_counter_t& read);

   const Kiln::HashMap<PipeTmCounterKey, Kiln::Ptr<PipeTmCounterSm>>& pipeTmCounterSm() const {
      return pipeTmCounterSm_;
   }
   // The key's poller; a missing one is made.
   const Kiln::Ptr<PipeTmCounterSm>& pipeTmCounterSmIs(const PipeTmCounterKey& key, U32 physicalPipe,
                                                       Kiln::Ptr<const Kiln::Clock> clock);
   void pipeTmCounterSmDelAll();
   // Polls every counter now. What can't be read stays as it is.
   void readAll();

 private:
   TableView view(std::optional<U16> pipe, bool nonZeroOnly) const;

   Kiln::Ptr<ZelQos::TmCountersData> last_;
   Kiln::Ptr<ZelQos::TmCountersData> lastClear_;
   Kiln::Ptr<CliPortDropData> data_;
   ClearedCounts<2>& counts_; // of data_
   Kiln::HashMap<PipeTmCounterKey, Kiln::Ptr<PipeTmCounterSm>> pipeTmCounterSm_;
};

} // namespace ZelCounter

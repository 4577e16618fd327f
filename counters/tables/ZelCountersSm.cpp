// Asks the SDK, table by table, whether it is initialized and whether it counts per pipe.
#include "counters/tables/ZelCountersSm.h"

#include "counters/chip/ChipAccess.h"
#include "counters/chip/Guarded.h"
#include "counters/chip/ZelCountersTrace.h"
#include "kiln/Assert.h"
#include "kiln/Time.h"
#include "sdk/pipe_mgr.h"
#include "zl/ZelSdk.h"

namespace ZelCounter {

ZelCountersSm::ZelCountersSm(ChipAccess* parent, Kiln::Ptr<const Kiln::Clock> clock)
     : parent_(parent), initClock_(std::move(clock), this, &ZelCountersSm::handleInitClock) {
   handleInitialized();
}

void ZelCountersSm::handleInitialized() {
   checkTables();
   initializedIs(true);
}

bool ZelCountersSm::counterInitialized(U32 tableId) {
   KILN_TRACE(1, "ZelCountersSm::"
                      << "counterInitialized"
                      << ", tableId: " << tableId);
   const ZlResourceInfo::ZlTableCounter* const info = parent_->zlResourceInfoIntf()->zlTableCounter(tableId);
   KILN_ASSERT(info);
   KILN_TRACE(1, "Table handle: 0x" << std::hex << info->tableHandle << ", counter handle: 0x"
                                    << info->counterHandle);
   bool tableInitialized = false;
   // No assertion, unlike below: early on the SDK may not know the table yet, and it is asked again.
   if (pipe_mgr_stat_tbl_symmetric_mode_initialized(parent_->deviceId(), info->counterHandle,
                                                    &tableInitialized) != 0) {
      KILN_TRACE(1, "Error getting counter initialization mode");
      return false;
   }
   if (!tableInitialized) {
      KILN_TRACE(1, "Counter table " << info->name << " not initialized yet");
      return false;
   }
   parent_->initializedCounterIs(tableId, true);
   bool symmetric = false;
   const pipe_status_t status =
        pipe_mgr_stat_tbl_symmetric_mode(parent_->deviceId(), info->counterHandle, &symmetric);
   KILN_ASSERT_TEXT(
        status == 0,
        "pipe_mgr_stat_tbl_symmetric_mode( bc()->deviceId(), info->counterHandle, &symmetric ) == 0");
   if (symmetric) {
      // No flag is set: a table that was made per pipe by name stays so.
      KILN_TRACE(1, "Counter table " << info->name << " is symmetric");
   } else {
      KILN_TRACE(1, "Counter table " << info->name << " is Asymmetric");
      parent_->perPipeCounterIs(tableId, true);
   }
   return true;
}

// Checked again, too, when the agent's own service threw.
void ZelCountersSm::handleInitClock() {
   initClock_.timeMinIs(Kiln::System::currentTime() + initDelay());
   guarded("checking the counter tables", [this] { checkTables(); });
}

void ZelCountersSm::checkTables() {
   KILN_TRACE(1, "ZelCountersSm::handleInitClock");
   const U32 countersNum = parent_->zlResourceInfoIntf()->zlTableCountersNum();
   // Every table on every check: one that stays uninitialized must not keep those behind it from being shown.
   bool pending = false;
   for (U32 tableId = 0; tableId < countersNum; ++tableId) {
      if (!parent_->initializedCounter(tableId) && !counterInitialized(tableId)) {
         pending = true;
      }
   }
   initClock_.timeMinIs(pending ? Kiln::System::currentTime() + initDelay() : Kiln::never);
}

void ZelCountersSm::doCleanup() {
   if (ChipAccess::simulation()) {
      smRunning = 0;
   }
}

} // namespace ZelCounter

// The SDK's three steps of reading an indirect counter table.
#pragma once

#include "counters/chip/ChipAccess.h"
#include "zl/ZelCountersIntf.h"

namespace ZelCounter {

// One read of one pipe's block of a table, or of a table that all pipes share (65535): start, then any entries, then
// end. Each step returns the SDK's status, 0 for success; after a failure the others are left out. It reads the SDK's
// software copy. Made for one read; the chip outlives it.
class IndirectRead {
 public:
   IndirectRead(const ChipAccess& chip, U16 pipe, U32 tableHandle)
        : chip_(chip), pipe_(pipe), tableHandle_(tableHandle) {}

   U32 start() {
      return ZelCountersIntf::counterReadIndirectStart(chip_.sessionId(), chip_.deviceId(), pipe_,
                                                       tableHandle_, &buffer_);
   }
   U32 entry(U32 index, p4_pd_counter_value* value) {
      return ZelCountersIntf::counterReadIndirectMain(chip_.sessionId(), chip_.deviceId(), pipe_,
                                                      tableHandle_, index, &buffer_, value);
   }
   U32 end() { return ZelCountersIntf::counterReadIndirectEnd(chip_.sessionId()); }

 private:
   const ChipAccess& chip_;
   U16 pipe_;
   U32 tableHandle_;
   ZelCountersIntf::ReadBuffer buffer_;
};

} // namespace ZelCounter

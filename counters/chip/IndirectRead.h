// The SDK's three steps of reading an indirect counter table.
#pragma once

#include "counters/chip/ChipAccess.h"
#include "zl/ZelCountersIntf.h"

namespace ZelCounter {

// One read of one pipe's block of a table, or of a table that all pipes share (65535): start, then any entries, then
// end. Each step returns the SDK's status, 0 for success; after a failure the others are left out. It reads the SDK's
// software copy, and the chip's readings are told how it went, unless nobody asked for it. Made for one read; the chip
// outlives it.
class IndirectRead {
 public:
   IndirectRead(ChipAccess& chip, U16 pipe, U32 tableHandle, bool isTold = true)
        : chip_(chip), pipe_(pipe), tableHandle_(tableHandle), isTold_(isTold) {}

   U32 start() {
      return noted(ZelCountersIntf::counterReadIndirectStart(chip_.sessionId(), chip_.deviceId(), pipe_,
                                                             tableHandle_, &buffer_));
   }
   U32 entry(U32 index, p4_pd_counter_value* value) {
      return noted(ZelCountersIntf::counterReadIndirectMain(chip_.sessionId(), chip_.deviceId(), pipe_,
                                                            tableHandle_, index, &buffer_, value));
   }
   U32 end() {
      const U32 status = noted(ZelCountersIntf::counterReadIndirectEnd(chip_.sessionId()));
      if (status == 0 && isTold_) {
         chip_.readings().completed(key());
      }
      return status;
   }

 private:
   ReadingKey key() const { return {ReadingKey::Kind::tableCopy, tableHandle_, pipe_}; }
   U32 noted(U32 status) {
      if (status != 0 && isTold_) {
         chip_.readings().refused(key(), static_cast<int>(status));
      }
      return status;
   }

   ChipAccess& chip_;
   U16 pipe_;
   U32 tableHandle_;
   bool isTold_;
   ZelCountersIntf::ReadBuffer buffer_;
};

} // namespace ZelCounter

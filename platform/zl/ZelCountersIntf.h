// Access to the P4 program's counters. Defined by the SDK wrapper, or by the software chip.
//
// All functions read and write the SDK's software copy; a hardware sync refreshes it, and a write goes to the hardware
// as well. Each returns an SDK status, 0 for success. Activity thread, except for the sync callback.
//
// A table handle is the catalogue's `tableHandle`, of a direct table the match table's. Pipes are logical ones: each in
// turn, or 65535 for all of a symmetric table.
#pragma once

#include "kiln/Types.h"
#include "sdk/bf_types.h"

// The value of one counter entry. A table that counts only one of the two leaves the other at 0.
struct p4_pd_counter_value {
   U64 packets;
   U64 bytes;
};

namespace ZelCountersIntf {

using SyncCallback = void (*)(bf_dev_id_t device, void* cookie);

// The state of a started read; opaque to the caller and valid until the matching End.
struct ReadBuffer {
   const void* table = nullptr;
   U64 position = 0;
};

// Refresh the software copy of a table, for one pipe or (65535) for all. After status 0 the callback comes exactly
// once, on any thread, possibly before this returns. 17: the table's counters cannot be synced.
U32 counterHwSyncDirect(U32 session, U32 device, U16 pipe, U32 tableHandle, SyncCallback callback,
                        void* cookie);
U32 counterHwSyncIndirect(U32 session, U32 device, U16 pipe, U32 tableHandle, SyncCallback callback,
                          void* cookie);

// Start, then Main for each match entry, then End. `count` is yours: what the start says is handed to each Main, which
// writes one value whatever it is. The software chip says 1.
U32 counterReadDirectStart(U32 session, U32 device, U16 pipe, U32 tableHandle, ReadBuffer* buffer,
                           U32* count);
U32 counterReadDirectMain(U32 session, U32 device, U16 pipe, U32 tableHandle, S32 entry, U32 count,
                          ReadBuffer* buffer, p4_pd_counter_value* value);
U32 counterReadDirectEnd(U32 session);

U32 counterReadIndirectStart(U32 session, U32 device, U16 pipe, U32 tableHandle, ReadBuffer* buffer);
U32 counterReadIndirectMain(U32 session, U32 device, U16 pipe, U32 tableHandle, U32 index, ReadBuffer* buffer,
                            p4_pd_counter_value* value);
U32 counterReadIndirectEnd(U32 session);

// Reads one match entry's value, without a started read; the pipe is always 65535. No flag is defined; pass 0.
U32 counterReadDirect(U32 session, U32 device, U16 pipe, U32 tableHandle, U32 entry, U32 flags,
                      p4_pd_counter_value* value);

U32 counterWriteDirect(U32 session, U32 device, U16 pipe, U32 tableHandle, S32 entry,
                       const p4_pd_counter_value& value);
U32 counterWriteIndirect(U32 session, U32 device, U16 pipe, U32 tableHandle, U32 index,
                         const p4_pd_counter_value& value);

} // namespace ZelCountersIntf

// The SDK's C functions and the wrappers' free functions, each forwarded to the fleet. Nothing else in the tree defines
// them: linking the real SDK replaces this file as a whole.
#include "sdk/bf_pipe.h"
#include "sdk/bf_port.h"
#include "sdk/bf_tm.h"
#include "sdk/lld.h"
#include "sdk/pipe_mgr.h"
#include "softchip/Fleet.h"
#include "softchip/RmonCounters.h"
#include "zl/ZelCountersIntf.h"
#include "zl/ZelSdk.h"

using namespace SoftChip;
using Kind = PipeManager::Kind;

namespace {

// Without a fleet there is no chip to ask.
template <class Operation>
int onChip(EntryPoint entryPoint, int device, Operation operation) {
   Fleet* const fleet = Fleet::instance();
   return fleet != nullptr ? fleet->onChip(entryPoint, device, operation) : statusInvalidArguments;
}

// The same, in an SDK session.
template <class Operation>
int inSession(U32 session, EntryPoint entryPoint, int device, Operation operation) {
   return session == sess_hdl ? onChip(entryPoint, device, operation) : statusSessionNotFound;
}

template <class Operation>
int request(EntryPoint entryPoint, const Completion& completion, Operation operation) {
   Fleet* const fleet = Fleet::instance();
   return fleet != nullptr ? fleet->request(entryPoint, completion, operation) : statusInvalidArguments;
}

int sync(EntryPoint entryPoint, Kind kind, U32 session, int device, U16 pipe, U32 tableHandle,
         pipe_mgr_stat_tbl_sync_cback_fn callback, void* cookie) {
   if (session != sess_hdl || callback == nullptr) {
      return session != sess_hdl ? statusSessionNotFound : statusInvalidArguments;
   }
   const Completion completion{.device = device,
                               .portOrPipe = pipe,
                               .tableHandle = tableHandle,
                               .syncCallback = callback,
                               .cookie = cookie};
   return request(entryPoint, completion,
                  [&](Chip& chip) { return chip.tables().checkSync(kind, tableHandle, pipe); });
}

int startRead(EntryPoint entryPoint, Kind kind, U32 session, U32 device, U16 pipe, U32 tableHandle,
              ZelCountersIntf::ReadBuffer* buffer) {
   Fleet* const fleet = Fleet::instance();
   if (session != sess_hdl || fleet == nullptr) {
      return session != sess_hdl ? statusSessionNotFound : statusInvalidArguments;
   }
   return fleet->startRead(entryPoint, kind, device, pipe, tableHandle, buffer);
}

int readStarted(EntryPoint entryPoint, const ZelCountersIntf::ReadBuffer& buffer, U32 slot,
                p4_pd_counter_value* value) {
   Fleet* const fleet = Fleet::instance();
   CounterValue counter;
   const int status =
        fleet != nullptr ? fleet->readStarted(entryPoint, buffer, slot, &counter) : statusInvalidArguments;
   if (status == statusOk) {
      *value = {counter.packets, counter.bytes};
   }
   return status;
}

int endRead(EntryPoint entryPoint, U32 session) {
   Fleet* const fleet = Fleet::instance();
   return session != sess_hdl ? statusSessionNotFound
          : fleet != nullptr  ? fleet->endRead(entryPoint)
                              : statusOk;
}

int write(EntryPoint entryPoint, Kind kind, U32 session, U32 device, U16 pipe, U32 tableHandle, U32 slot,
          const p4_pd_counter_value& value) {
   return inSession(session, entryPoint, static_cast<int>(device), [&](Chip& chip) {
      return chip.tables().write(kind, tableHandle, pipe, slot, {value.packets, value.bytes});
   });
}

} // namespace

U32 ZelSdk::getZelSessionHdl() {
   return sess_hdl;
}

bf_status_t bf_port_mac_stats_hw_async_get(bf_dev_id_t dev, bf_dev_port_t port, bf_port_mac_stats_cb callback,
                                           void* cookie) {
   if (callback == nullptr) {
      return statusInvalidArguments;
   }
   // A port number that is cut short here is refused below, where checkPort() sees all of it.
   const Completion completion{
        .device = dev, .portOrPipe = static_cast<U16>(port), .macCallback = callback, .cookie = cookie};
   return request(EntryPoint::portMacStatsGet, completion, [&](Chip& chip) { return chip.checkPort(port); });
}

bf_status_t bf_port_rmon_counter_to_str(int index, const char** name) {
   // Asks no chip and has no planned faults: the names are the same everywhere.
   if (index < 0 || index >= BF_NUM_RMON_COUNTERS || name == nullptr) {
      return statusInvalidArguments;
   }
   *name = rmonCounters[index].name;
   return statusOk;
}

bf_status_t bf_tm_q_drop_get(bf_dev_id_t dev, uint16_t pipe, bf_dev_port_t port, uint32_t queue,
                             uint64_t* drops) {
   return onChip(EntryPoint::tmQueueDropGet, dev,
                 [&](Chip& chip) { return chip.readDrops(pipe, port, queue, drops); });
}

bf_status_t bf_tm_pipe_counter_get(bf_dev_id_t dev, uint16_t pipe, uint32_t type,
                                   bf_tm_pipe_counter_t* counter) {
   return onChip(EntryPoint::tmPipeCounterGet, dev,
                 [&](Chip& chip) { return chip.readTm(pipe, type, counter); });
}

bf_status_t bf_pipe_path_counter_get(bf_dev_id_t dev, uint16_t pipe, uint32_t stage,
                                     bf_pipe_path_count_t* count) {
   return onChip(EntryPoint::pipePathCounterGet, dev,
                 [&](Chip& chip) { return chip.readPath(pipe, stage, count); });
}

bf_status_t bf_pipe_mau_drop_get(bf_dev_id_t dev, uint16_t pipe, uint32_t stage, uint64_t* drops) {
   return onChip(EntryPoint::pipeMauDropGet, dev,
                 [&](Chip& chip) { return chip.readMauDrops(pipe, stage, drops); });
}

bf_status_t bf_pipe_deparser_drop_get(bf_dev_id_t dev, uint16_t pipe, uint32_t direction, uint64_t* drops) {
   return onChip(EntryPoint::pipeDeparserDropGet, dev,
                 [&](Chip& chip) { return chip.readDeparserDrops(pipe, direction, drops); });
}

// Logical and physical pipes are the same.
bf_status_t lld_sku_map_pipe_id_to_phy_pipe_id(bf_dev_id_t dev, uint32_t logicalPipe,
                                               uint32_t* physicalPipe) {
   return onChip(EntryPoint::mapPipe, dev, [&](Chip& chip) {
      *physicalPipe = logicalPipe;
      return logicalPipe < chip.pipes() ? statusOk : statusInvalidArguments;
   });
}

pipe_status_t pipe_mgr_stat_tbl_symmetric_mode_initialized(bf_dev_id_t dev, pipe_stat_tbl_hdl_t table,
                                                           bool* initialized) {
   return onChip(EntryPoint::symmetricModeInitialized, dev,
                 [&](Chip& chip) { return chip.tables().initialized(table, initialized); });
}

pipe_status_t pipe_mgr_stat_tbl_symmetric_mode(bf_dev_id_t dev, pipe_stat_tbl_hdl_t table, bool* symmetric) {
   return onChip(EntryPoint::symmetricMode, dev,
                 [&](Chip& chip) { return chip.tables().symmetric(table, symmetric); });
}

pipe_status_t pipe_mgr_tbl_set_property(pipe_sess_hdl_t session, bf_dev_id_t dev, pipe_tbl_hdl_t table,
                                        uint32_t property, uint32_t value, uint32_t /*arguments*/) {
   return inSession(session, EntryPoint::tableSetProperty, dev,
                    [&](Chip& chip) { return chip.tables().setProperty(table, property, value); });
}

pipe_status_t pipe_mgr_stat_database_sync(pipe_sess_hdl_t session, dev_target_t target, pipe_tbl_hdl_t table,
                                          pipe_mgr_stat_tbl_sync_cback_fn callback, void* cookie) {
   return sync(EntryPoint::databaseSync, Kind::either, session, target.device_id, target.dev_pipe_id, table,
               callback, cookie);
}

pipe_status_t pipe_mgr_stat_ent_query(pipe_sess_hdl_t session, bf_dev_id_t dev, uint16_t pipe,
                                      pipe_tbl_hdl_t table, pipe_stat_ent_idx_t index,
                                      pipe_stat_data_t* result) {
   return inSession(session, EntryPoint::entryQuery, dev, [&](Chip& chip) {
      CounterValue value;
      const int status = chip.tables().read(Kind::either, table, pipe, index, &value);
      *result = {value.packets, value.bytes};
      return status;
   });
}

pipe_status_t pipe_mgr_get_first_entry_handle(pipe_sess_hdl_t session, pipe_tbl_hdl_t table,
                                              dev_target_t target, int* entry) {
   return inSession(session, EntryPoint::firstEntryHandle, target.device_id, [&](Chip& chip) {
      return chip.tables().nextEntries(table, target.dev_pipe_id, 0, 1, entry);
   });
}

pipe_status_t pipe_mgr_get_next_entry_handles(pipe_sess_hdl_t session, pipe_tbl_hdl_t table,
                                              dev_target_t target, pipe_mat_ent_hdl_t entry, int count,
                                              int* next) {
   return inSession(session, EntryPoint::nextEntryHandles, target.device_id, [&](Chip& chip) {
      return chip.tables().nextEntries(table, target.dev_pipe_id, entry, count, next);
   });
}

namespace ZelCountersIntf {

U32 counterHwSyncDirect(U32 session, U32 device, U16 pipe, U32 tableHandle, SyncCallback callback,
                        void* cookie) {
   return static_cast<U32>(sync(EntryPoint::syncDirect, Kind::direct, session, static_cast<int>(device), pipe,
                                tableHandle, callback, cookie));
}

U32 counterHwSyncIndirect(U32 session, U32 device, U16 pipe, U32 tableHandle, SyncCallback callback,
                          void* cookie) {
   return static_cast<U32>(sync(EntryPoint::syncIndirect, Kind::indirect, session, static_cast<int>(device),
                                pipe, tableHandle, callback, cookie));
}

U32 counterReadDirectStart(U32 session, U32 device, U16 pipe, U32 tableHandle, ReadBuffer* buffer,
                           U32* count) {
   *count = 1; // value per entry
   return static_cast<U32>(
        startRead(EntryPoint::readDirectStart, Kind::direct, session, device, pipe, tableHandle, buffer));
}

U32 counterReadDirectMain(U32 /*session*/, U32 /*device*/, U16 /*pipe*/, U32 /*tableHandle*/, S32 entry,
                          U32 /*count*/, ReadBuffer* buffer, p4_pd_counter_value* value) {
   // Device, pipe and table are those of the start, whose values the buffer stands for.
   return static_cast<U32>(readStarted(EntryPoint::readDirectMain, *buffer, static_cast<U32>(entry), value));
}

U32 counterReadDirectEnd(U32 session) {
   return static_cast<U32>(endRead(EntryPoint::readDirectEnd, session));
}

U32 counterReadIndirectStart(U32 session, U32 device, U16 pipe, U32 tableHandle, ReadBuffer* buffer) {
   return static_cast<U32>(
        startRead(EntryPoint::readIndirectStart, Kind::indirect, session, device, pipe, tableHandle, buffer));
}

U32 counterReadIndirectMain(U32 /*session*/, U32 /*device*/, U16 /*pipe*/, U32 /*tableHandle*/, U32 index,
                            ReadBuffer* buffer, p4_pd_counter_value* value) {
   return static_cast<U32>(readStarted(EntryPoint::readIndirectMain, *buffer, index, value));
}

U32 counterReadIndirectEnd(U32 session) {
   return static_cast<U32>(endRead(EntryPoint::readIndirectEnd, session));
}

U32 counterReadDirect(U32 session, U32 device, U16 pipe, U32 tableHandle, U32 entry, U32 /*flags*/,
                      p4_pd_counter_value* value) {
   return static_cast<U32>(
        inSession(session, EntryPoint::readDirect, static_cast<int>(device), [&](Chip& chip) {
           CounterValue counter;
           const int status = chip.tables().read(Kind::direct, tableHandle, pipe, entry, &counter);
           *value = {counter.packets, counter.bytes};
           return status;
        }));
}

U32 counterWriteDirect(U32 session, U32 device, U16 pipe, U32 tableHandle, S32 entry,
                       const p4_pd_counter_value& value) {
   return static_cast<U32>(write(EntryPoint::writeDirect, Kind::direct, session, device, pipe, tableHandle,
                                 static_cast<U32>(entry), value));
}

U32 counterWriteIndirect(U32 session, U32 device, U16 pipe, U32 tableHandle, U32 index,
                         const p4_pd_counter_value& value) {
   return static_cast<U32>(
        write(EntryPoint::writeIndirect, Kind::indirect, session, device, pipe, tableHandle, index, value));
}

} // namespace ZelCountersIntf

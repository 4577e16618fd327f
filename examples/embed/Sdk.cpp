// A stub of the chip maker's SDK: every function that the library needs at link time. Only the reads of port counters
// work; the other functions answer "not supported", which the library treats like any failed read.
#include "Sdk.h"

#include "sdk/bf_pipe.h"
#include "sdk/bf_port.h"
#include "sdk/bf_tm.h"
#include "sdk/lld.h"
#include "sdk/pipe_mgr.h"
#include "zl/ZelCountersIntf.h"
#include "zl/ZelSdk.h"

#include <map>
#include <utility>
#include <vector>

namespace {

constexpr bf_status_t notSupported = 17;

struct Read {
   bf_dev_id_t device;
   bf_dev_port_t port;
   bf_port_mac_stats_cb callback;
   void* cookie;
};

std::map<bf_dev_port_t, unsigned> framesReceived; // by port
std::vector<Read> acceptedReads;

} // namespace

void Sdk::receive(bf_dev_port_t port, unsigned frames) {
   framesReceived[port] += frames;
}

void Sdk::completeReads() {
   for (const Read& read : std::exchange(acceptedReads, {})) {
      bf_rmon_counter_array_t counters = {};
      counters[BF_RMON_FRAMES_RECEIVED_OK] = framesReceived[read.port];
      counters[BF_RMON_FRAMES_RECEIVED_ALL] = framesReceived[read.port];
      read.callback(read.device, read.port, &counters, read.cookie);
   }
}

// Ports.

bf_status_t bf_port_mac_stats_hw_async_get(bf_dev_id_t device, bf_dev_port_t port,
                                           bf_port_mac_stats_cb callback, void* cookie) {
   acceptedReads.push_back({device, port, callback, cookie});
   return BF_SUCCESS;
}

bf_status_t bf_port_rmon_counter_to_str(int index, const char** name) {
   *name = index == BF_RMON_FRAMES_RECEIVED_OK    ? "FramesReceivedOK"
           : index == BF_RMON_FRAMES_RECEIVED_ALL ? "FramesReceivedAll"
                                                  : "Other";
   return BF_SUCCESS;
}

// Traffic manager and pipeline.

bf_status_t bf_tm_q_drop_get(bf_dev_id_t, uint16_t, bf_dev_port_t, uint32_t, uint64_t*) {
   return notSupported;
}
bf_status_t bf_tm_pipe_counter_get(bf_dev_id_t, uint16_t, uint32_t, bf_tm_pipe_counter_t*) {
   return notSupported;
}
bf_status_t bf_pipe_path_counter_get(bf_dev_id_t, uint16_t, uint32_t, bf_pipe_path_count_t*) {
   return notSupported;
}
bf_status_t bf_pipe_mau_drop_get(bf_dev_id_t, uint16_t, uint32_t, uint64_t*) {
   return notSupported;
}
bf_status_t bf_pipe_deparser_drop_get(bf_dev_id_t, uint16_t, uint32_t, uint64_t*) {
   return notSupported;
}

bf_status_t lld_sku_map_pipe_id_to_phy_pipe_id(bf_dev_id_t, uint32_t logicalPipe, uint32_t* physicalPipe) {
   *physicalPipe = logicalPipe;
   return BF_SUCCESS;
}

// Counter tables: the chip is added without a P4 program, so it has none.

pipe_status_t pipe_mgr_stat_tbl_symmetric_mode_initialized(bf_dev_id_t, pipe_stat_tbl_hdl_t, bool*) {
   return notSupported;
}
pipe_status_t pipe_mgr_stat_tbl_symmetric_mode(bf_dev_id_t, pipe_stat_tbl_hdl_t, bool*) {
   return notSupported;
}
pipe_status_t pipe_mgr_tbl_set_property(pipe_sess_hdl_t, bf_dev_id_t, pipe_tbl_hdl_t, uint32_t, uint32_t,
                                        uint32_t) {
   return notSupported;
}
pipe_status_t pipe_mgr_stat_database_sync(pipe_sess_hdl_t, dev_target_t, pipe_tbl_hdl_t,
                                          pipe_mgr_stat_tbl_sync_cback_fn, void*) {
   return notSupported;
}
pipe_status_t pipe_mgr_stat_ent_query(pipe_sess_hdl_t, bf_dev_id_t, uint16_t, pipe_tbl_hdl_t,
                                      pipe_stat_ent_idx_t, pipe_stat_data_t*) {
   return notSupported;
}
pipe_status_t pipe_mgr_get_first_entry_handle(pipe_sess_hdl_t, pipe_tbl_hdl_t, dev_target_t, int*) {
   return notSupported;
}
pipe_status_t pipe_mgr_get_next_entry_handles(pipe_sess_hdl_t, pipe_tbl_hdl_t, dev_target_t,
                                              pipe_mat_ent_hdl_t, int, int*) {
   return notSupported;
}

namespace ZelCountersIntf {

U32 counterHwSyncDirect(U32, U32, U16, U32, SyncCallback, void*) {
   return notSupported;
}
U32 counterHwSyncIndirect(U32, U32, U16, U32, SyncCallback, void*) {
   return notSupported;
}
U32 counterReadDirectStart(U32, U32, U16, U32, ReadBuffer*, U32*) {
   return notSupported;
}
U32 counterReadDirectMain(U32, U32, U16, U32, S32, U32, ReadBuffer*, p4_pd_counter_value*) {
   return notSupported;
}
U32 counterReadDirectEnd(U32) {
   return notSupported;
}
U32 counterReadIndirectStart(U32, U32, U16, U32, ReadBuffer*) {
   return notSupported;
}
U32 counterReadIndirectMain(U32, U32, U16, U32, U32, ReadBuffer*, p4_pd_counter_value*) {
   return notSupported;
}
U32 counterReadIndirectEnd(U32) {
   return notSupported;
}
U32 counterReadDirect(U32, U32, U16, U32, U32, U32, p4_pd_counter_value*) {
   return notSupported;
}
U32 counterWriteDirect(U32, U32, U16, U32, S32, const p4_pd_counter_value&) {
   return notSupported;
}
U32 counterWriteIndirect(U32, U32, U16, U32, U32, const p4_pd_counter_value&) {
   return notSupported;
}

} // namespace ZelCountersIntf

U32 ZelSdk::getZelSessionHdl() {
   return sess_hdl;
}

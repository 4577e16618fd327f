// An SDK that breaks the contract in one way, which WRONG in the environment names: it stands between the contract kit
// and the soft chip, by the linker's --wrap.
#include "examples/sdk-check/Hooks.h"
#include "kiln/Types.h"
#include "sdk/bf_port.h"
#include "sdk/bf_tm.h"
#include "sdk/pipe_mgr.h"

#include <cstdlib>
#include <memory>
#include <mutex>
#include <string_view>

// NOLINTBEGIN(bugprone-reserved-identifier,readability-identifier-naming): the linker has these names.
extern "C" {
bf_status_t __real_bf_port_mac_stats_hw_async_get(bf_dev_id_t, bf_dev_port_t, bf_port_mac_stats_cb, void*);
bf_status_t __real_bf_tm_q_drop_get(bf_dev_id_t, uint16_t, bf_dev_port_t, uint32_t, uint64_t*);
pipe_status_t __real_pipe_mgr_stat_database_sync(pipe_sess_hdl_t, dev_target_t, pipe_tbl_hdl_t,
                                                 pipe_mgr_stat_tbl_sync_cback_fn, void*);
pipe_status_t __real_pipe_mgr_stat_ent_query(pipe_sess_hdl_t, bf_dev_id_t, uint16_t, pipe_tbl_hdl_t,
                                             pipe_stat_ent_idx_t, pipe_stat_data_t*);
pipe_status_t __real_pipe_mgr_stat_tbl_symmetric_mode(bf_dev_id_t, pipe_stat_tbl_hdl_t, bool*);
}

namespace {

bool isWrong(std::string_view in) {
   const char* const wrong = std::getenv("WRONG");
   return wrong != nullptr && in == wrong;
}

struct Read {
   bf_port_mac_stats_cb callback;
   void* cookie;
};

std::recursive_mutex sdkLock; // that is held while calling back, if that is what is wrong

void complete(bf_dev_id_t device, bf_dev_port_t port, bf_rmon_counter_array_t* values, void* cookie) {
   const std::unique_ptr<const Read> read(static_cast<const Read*>(cookie));
   if (isWrong("lost")) {
      return;
   }
   if (isWrong("octets without FCS")) {
      (*values)[BF_RMON_OCTETS_RECEIVED_GOOD] -= 4 * (*values)[BF_RMON_FRAMES_RECEIVED_OK];
   } else if (isWrong("32 bits")) {
      for (U64& value : *values) {
         value &= 0xFFFFFFFF;
      }
   } else if (isWrong("indices")) {
      std::swap((*values)[BF_RMON_FRAMES_RECEIVED_OK], (*values)[BF_RMON_FRAMES_RECEIVED_ALL]);
   }
   std::unique_lock lock(sdkLock, std::defer_lock);
   if (isWrong("lock")) {
      lock.lock();
   }
   read->callback(isWrong("device") ? device + 1 : device, isWrong("port") ? port + 1 : port, values,
                  read->cookie);
   if (isWrong("doubled")) {
      read->callback(device, port, values, read->cookie);
   }
}

struct Sync {
   pipe_mgr_stat_tbl_sync_cback_fn callback;
   void* cookie;
};

void completeSync(bf_dev_id_t device, void* cookie) {
   const std::unique_ptr<const Sync> sync(static_cast<const Sync*>(cookie));
   if (!isWrong("lost sync")) {
      sync->callback(device, sync->cookie);
   }
   if (isWrong("doubled sync")) {
      sync->callback(device, sync->cookie);
   }
}

} // namespace

extern "C" {

bf_status_t __wrap_bf_port_mac_stats_hw_async_get(bf_dev_id_t device, bf_dev_port_t port,
                                                  bf_port_mac_stats_cb callback, void* cookie) {
   std::unique_lock lock(sdkLock, std::defer_lock);
   if (isWrong("lock")) {
      lock.lock();
   }
   auto* const read = new Read{callback, cookie}; // the completion's, if there is one
   const bf_status_t status = __real_bf_port_mac_stats_hw_async_get(device, port, complete, read);
   if (status != BF_SUCCESS) {
      delete read;
      if (isWrong("refused")) {
         bf_rmon_counter_array_t zeros = {};
         callback(device, port, &zeros, cookie);
      }
   }
   return status;
}

bf_status_t __wrap_bf_tm_q_drop_get(bf_dev_id_t device, uint16_t pipe, bf_dev_port_t port, uint32_t queue,
                                    uint64_t* drops) {
   return isWrong("drops") ? 17 : __real_bf_tm_q_drop_get(device, pipe, port, queue, drops);
}

// Numbers a port's queues densely, as somebody might expect it.
pipe_status_t __wrap_pipe_mgr_stat_ent_query(pipe_sess_hdl_t session, bf_dev_id_t device, uint16_t pipe,
                                             pipe_tbl_hdl_t table, pipe_stat_ent_idx_t index,
                                             pipe_stat_data_t* data) {
   const pipe_stat_ent_idx_t asked = isWrong("queue numbers") && index % 32 != 0 ? index + 8 : index;
   return __real_pipe_mgr_stat_ent_query(session, device, pipe, table, asked, data);
}

pipe_status_t __wrap_pipe_mgr_stat_database_sync(pipe_sess_hdl_t session, dev_target_t target,
                                                 pipe_tbl_hdl_t table,
                                                 pipe_mgr_stat_tbl_sync_cback_fn callback, void* cookie) {
   auto* const sync = new Sync{callback, cookie};
   const pipe_status_t status =
        __real_pipe_mgr_stat_database_sync(session, target, table, completeSync, sync);
   if (status != BF_SUCCESS) {
      delete sync;
   }
   return status;
}

pipe_status_t __wrap_pipe_mgr_stat_tbl_symmetric_mode(bf_dev_id_t device, pipe_stat_tbl_hdl_t table,
                                                      bool* symmetric) {
   const pipe_status_t status = __real_pipe_mgr_stat_tbl_symmetric_mode(device, table, symmetric);
   *symmetric = (*symmetric || isWrong("symmetric")) && !isWrong("asymmetric");
   return status;
}
}

namespace SdkCheck {

Hooks realHooks(const Target& target) __asm__("__real__ZN8SdkCheck9makeHooksERKNS_6TargetE");
Hooks wrongHooks(const Target& target) __asm__("__wrap__ZN8SdkCheck9makeHooksERKNS_6TargetE");

Hooks wrongHooks(const Target& target) {
   Hooks hooks = realHooks(target);
   if (isWrong("VLAN counters")) {
      // The program is this process's own, and no chip asks for it by this handle.
      auto& tables =
           const_cast<std::vector<ZlResourceInfo::ZlTableCounter>&>(*hooks.resourceInfo->zlTableCounters());
      tables[hooks.resourceInfo->zlTableCounterIndex("ingL2DomainCounters")].tableHandle += 0x100;
   }
   return hooks;
}

} // namespace SdkCheck
// NOLINTEND(bugprone-reserved-identifier,readability-identifier-naming)

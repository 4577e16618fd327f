// Match-action tables and their statistics.
#pragma once

#include "sdk/bf_types.h"

#include <stdbool.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef uint32_t pipe_sess_hdl_t;
typedef uint32_t pipe_tbl_hdl_t; // a match table
typedef uint32_t pipe_stat_tbl_hdl_t;
typedef uint32_t pipe_stat_ent_idx_t;
typedef int32_t pipe_mat_ent_hdl_t; // a match entry; all ones is none

enum { PIPE_MAT_ENT_HDL_NONE = -1 };
enum { PIPE_TBL_PROPERTY_ENTRY_SCOPE = 1 };
enum { PIPE_ENTRY_SCOPE_ALL_PIPELINES = 0, PIPE_ENTRY_SCOPE_SINGLE_PIPELINE = 1 };

// Where an operation applies: a device, and one of its logical pipes or 65535 for all.
typedef struct {
   bf_dev_id_t device_id;
   uint16_t dev_pipe_id;
} dev_target_t;

typedef struct {
   uint64_t packets;
   uint64_t bytes;
} pipe_stat_data_t;

typedef void (*pipe_mgr_stat_tbl_sync_cback_fn)(bf_dev_id_t dev, void* cookie);

pipe_status_t pipe_mgr_stat_tbl_symmetric_mode_initialized(bf_dev_id_t dev, pipe_stat_tbl_hdl_t table,
                                                           bool* initialized);
pipe_status_t pipe_mgr_stat_tbl_symmetric_mode(bf_dev_id_t dev, pipe_stat_tbl_hdl_t table, bool* symmetric);

pipe_status_t pipe_mgr_tbl_set_property(pipe_sess_hdl_t session, bf_dev_id_t dev, pipe_tbl_hdl_t table,
                                        uint32_t property, uint32_t value, uint32_t arguments);

// Refreshes the software copy of a table's statistics from the hardware. On 0 the callback comes exactly
// once. Here and in the next, `table` is the handle that names the counter table to syncs and reads.
pipe_status_t pipe_mgr_stat_database_sync(pipe_sess_hdl_t session, dev_target_t target, pipe_tbl_hdl_t table,
                                          pipe_mgr_stat_tbl_sync_cback_fn callback, void* cookie);
// Reads one entry of the software copy. `pipe` is a logical one.
pipe_status_t pipe_mgr_stat_ent_query(pipe_sess_hdl_t session, bf_dev_id_t dev, uint16_t pipe,
                                      pipe_tbl_hdl_t table, pipe_stat_ent_idx_t index,
                                      pipe_stat_data_t* result);

// Walk the match entries of a table, in the order of their handles. Object not found (6) when there is none.
pipe_status_t pipe_mgr_get_first_entry_handle(pipe_sess_hdl_t session, pipe_tbl_hdl_t table,
                                              dev_target_t target, int* entry);
pipe_status_t pipe_mgr_get_next_entry_handles(pipe_sess_hdl_t session, pipe_tbl_hdl_t table,
                                              dev_target_t target, pipe_mat_ent_hdl_t entry, int count,
                                              int* next);

#ifdef __cplusplus
}
#endif

// Port MAC statistics.
#pragma once

#include "sdk/bf_rmon.h"
#include "sdk/bf_types.h"

#ifdef __cplusplus
extern "C" {
#endif

typedef void (*bf_port_mac_stats_cb)(bf_dev_id_t dev, bf_dev_port_t port, bf_rmon_counter_array_t* counters,
                                     void* cookie);

// Starts a read of all RMON counters of a port. On 0 the callback is called exactly once, on any thread or
// before this returns; the array is valid during the call only. After any other status it is not called.
bf_status_t bf_port_mac_stats_hw_async_get(bf_dev_id_t dev, bf_dev_port_t port, bf_port_mac_stats_cb callback,
                                           void* cookie);

// The name of an RMON counter; static storage. 3 (invalid arguments) for an index that is none.
bf_status_t bf_port_rmon_counter_to_str(int index, const char** name);

#ifdef __cplusplus
}
#endif

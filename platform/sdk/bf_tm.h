// The traffic manager.
#pragma once

#include "sdk/bf_types.h"

#ifdef __cplusplus
extern "C" {
#endif

// Packets that one queue of a port dropped.
bf_status_t bf_tm_q_drop_get(bf_dev_id_t dev, uint16_t pipe, bf_dev_port_t port, uint32_t queue,
                             uint64_t* drops);

#ifdef __cplusplus
}
#endif

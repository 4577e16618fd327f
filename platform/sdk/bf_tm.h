// The traffic manager.
#pragma once

#include "sdk/bf_types.h"

#ifdef __cplusplus
extern "C" {
#endif

// Packets that one queue of a port dropped. `pipe` is the port's, a logical one.
bf_status_t bf_tm_q_drop_get(bf_dev_id_t dev, uint16_t pipe, bf_dev_port_t port, uint32_t queue,
                             uint64_t* drops);

// What the traffic manager counts of each pipe. Numbers 3 and 5 count nothing.
typedef enum {
   BF_TM_PIPE_INGRESS = 0,    // frames that came in from the pipe
   BF_TM_PIPE_EGRESS = 1,     // copies that queues of the pipe sent
   BF_TM_PIPE_DROPS = 2,      // copies that queues of the pipe refused
   BF_TM_PIPE_MULTICAST = 4,  // copies of frames for several ports, offered to queues of the pipe
   BF_TM_PIPE_CELLS = 6,      // buffer cells that queues of the pipe hold now
   BF_TM_PIPE_WATERMARK = 7,  // the most cells that the queues of one port of the pipe ever held
   BF_TM_PIPE_CUT_THROUGH = 8 // copies that found an idle port and were sent without waiting
} bf_tm_pipe_counter_type_t;

typedef struct {
   uint64_t count; // packets since the chip came up, or cells
   uint64_t bytes; // of the packets, without FCS; 0 for cells
} bf_tm_pipe_counter_t;

// `pipe` is a physical one.
bf_status_t bf_tm_pipe_counter_get(bf_dev_id_t dev, uint16_t pipe, uint32_t type,
                                   bf_tm_pipe_counter_t* counter);

#ifdef __cplusplus
}
#endif

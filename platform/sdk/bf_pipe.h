// The way of frames through a pipe, counted where they come in, go on, or are dropped. Pipes are logical ones.
#pragma once

#include "sdk/bf_types.h"

#ifdef __cplusplus
extern "C" {
#endif

// What a frame passes, in this order.
typedef enum {
   BF_PIPE_PATH_PORT_RX = 0,
   BF_PIPE_PATH_PARSER = 1,
   BF_PIPE_PATH_INGRESS = 2,
   BF_PIPE_PATH_INGRESS_DEPARSER = 3,
   BF_PIPE_PATH_TRAFFIC_MANAGER = 4,
   BF_PIPE_PATH_EGRESS = 5,
   BF_PIPE_PATH_EGRESS_DEPARSER = 6,
   BF_PIPE_PATH_PORT_TX = 7,
   BF_PIPE_PATH_STAGES = 8
} bf_pipe_path_stage_t;

// Packets since the chip came up. What came in, went neither on nor away, was consumed there: MAC control
// frames by the receiving port. The traffic manager counts `in` in the pipe that a frame comes from, and the
// copies that it makes of the frame in the pipes that they go to.
typedef struct {
   uint64_t in;
   uint64_t out;
   uint64_t dropped;
} bf_pipe_path_count_t;

bf_status_t bf_pipe_path_counter_get(bf_dev_id_t dev, uint16_t pipe, uint32_t stage,
                                     bf_pipe_path_count_t* count);

// The match-action stages that may drop, as the switch's program lays them out.
typedef enum {
   BF_PIPE_MAU_INGRESS_PORT_CHECK = 0,
   BF_PIPE_MAU_QOS_POLICY = 1,
   BF_PIPE_MAU_INGRESS_ACL = 2,
   BF_PIPE_MAU_FORWARDING = 3,
   BF_PIPE_MAU_EGRESS_PORT_CHECK = 4,
   BF_PIPE_MAU_EGRESS_ACL = 5,
   BF_PIPE_MAU_STAGES = 6
} bf_pipe_mau_stage_t;

// Packets that a stage's verdict dropped.
bf_status_t bf_pipe_mau_drop_get(bf_dev_id_t dev, uint16_t pipe, uint32_t stage, uint64_t* drops);

typedef enum { BF_PIPE_INGRESS = 0, BF_PIPE_EGRESS = 1, BF_PIPE_DIRECTIONS = 2 } bf_pipe_direction_t;

// Packets that no stage dropped and that the deparser could not send on.
bf_status_t bf_pipe_deparser_drop_get(bf_dev_id_t dev, uint16_t pipe, uint32_t direction, uint64_t* drops);

#ifdef __cplusplus
}
#endif

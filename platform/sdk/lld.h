// The SDK's low-level driver: which pipes of this chip are which.
#pragma once

#include "sdk/bf_types.h"

#ifdef __cplusplus
extern "C" {
#endif

bf_status_t lld_sku_map_pipe_id_to_phy_pipe_id(bf_dev_id_t dev, uint32_t logicalPipe, uint32_t* physicalPipe);

#ifdef __cplusplus
}
#endif

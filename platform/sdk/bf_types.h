// The chip SDK's basic types. Declarations only: the SDK, or the software chip, defines what they name.
#pragma once

#include <stdint.h>

typedef int bf_dev_id_t;   // a chip, 0 upward
typedef int bf_dev_port_t; // a device port: logical pipe x 128 + slot
typedef int bf_status_t;   // 0 is success
typedef int pipe_status_t; // the same codes, from the pipe manager

enum { BF_SUCCESS = 0 };

// The soft chip's face: a fleet of chips behind the SDK's entry points, their PD interface, and the traffic that
// feeds them.
#pragma once

#include "softchip/Chip.h"
#include "softchip/Fleet.h"
#include "softchip/SoftPd.h"
#include "softchip/Traffic.h"

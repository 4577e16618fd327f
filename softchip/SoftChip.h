// Everything that a user of the soft chip needs: a fleet of chips behind the SDK's entry points, their PD interface,
// and traffic.
#pragma once

#include "softchip/Chip.h"
#include "softchip/Fleet.h"
#include "softchip/SoftPd.h"
#include "softchip/Traffic.h"

// The soft chip's face: a fleet of chips behind the SDK's entry points, their PD interface, and the traffic that
// feeds them.
#pragma once

#include "Chip.h"
#include "Fleet.h"
#include "SoftPd.h"
#include "Traffic.h"

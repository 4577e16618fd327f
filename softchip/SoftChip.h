// The soft chip's face: a fleet of chips behind the SDK's entry points, and the traffic that feeds them.
#pragma once

#include "Chip.h"
#include "Fleet.h"
#include "Traffic.h"

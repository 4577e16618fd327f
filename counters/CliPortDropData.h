// Port drop-counter data for the commands.
#pragma once

#include "kiln/Ptr.h"

namespace ZelCounter {

class CliPortDropData : public Kiln::PtrInterface {};

} // namespace ZelCounter

// The help text.
#pragma once

#include "kiln/Types.h"

namespace ZelCtl {

Kiln::String helpText();

} // namespace ZelCtl

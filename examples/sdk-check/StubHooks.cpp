// The hooks for the stub SDK of ../embed: ports only, completed when it is told to.
#include "Hooks.h"
#include "embed/Sdk.h"
#include "kiln/ActivityLock.h"
#include "zl/ZelSdk.h"

namespace SdkCheck {

Hooks makeHooks(const Target& /*target*/) {
   sess_hdl = 1;
   Hooks hooks;
   hooks.work = [] {
      const auto lock = Kiln::ActivityLockAnchor::lock();
      Sdk::completeReads();
   };
   return hooks;
}

} // namespace SdkCheck

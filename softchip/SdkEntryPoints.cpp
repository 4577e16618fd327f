// The SDK's C functions and the wrappers' free functions, each passed on to the fleet. The only place in the
// tree that defines them: replaced as a whole when the real SDK is linked.
#include "Fleet.h"
#include "RmonCounters.h"
#include "sdk/bf_port.h"
#include "zl/ZelSdk.h"

using SoftChip::Chip;
using SoftChip::Completion;
using SoftChip::EntryPoint;
using SoftChip::Fleet;
using SoftChip::statusInvalidArguments;
using SoftChip::statusOk;

namespace {

template <class Operation>
int request(EntryPoint entryPoint, const Completion& completion, Operation operation) {
   Fleet* const fleet = Fleet::instance();
   return fleet != nullptr ? fleet->request(entryPoint, completion, operation) : statusInvalidArguments;
}

} // namespace

U32 ZelSdk::getZelSessionHdl() {
   return sess_hdl;
}

bf_status_t bf_port_mac_stats_hw_async_get(bf_dev_id_t dev, bf_dev_port_t port, bf_port_mac_stats_cb callback,
                                           void* cookie) {
   if (callback == nullptr) {
      return statusInvalidArguments;
   }
   Completion completion{.device = dev, .macCallback = callback, .cookie = cookie};
   completion.portOrPipe = static_cast<U16>(port);
   return request(EntryPoint::portMacStatsGet, completion, [&](Chip& chip) { return chip.checkPort(port); });
}

bf_status_t bf_port_rmon_counter_to_str(int index, const char** name) {
   if (index < 0 || index >= BF_NUM_RMON_COUNTERS || name == nullptr) {
      return statusInvalidArguments;
   }
   *name = SoftChip::rmonCounters[index].name;
   return statusOk;
}

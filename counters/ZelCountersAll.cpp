// The commands that show and clear everything of a chip, and what show and clear operations share.
#include "counters/ZelCounters.h"
#include "counters/chip/ZelCountersTrace.h"
#include "counters/show/TextShow.h"

namespace ZelCounter {

bool ZelCounters::answeredUninitialized(ShowOutput& out) const {
   if (!initialized()) {
      out.uninitialized();
   }
   return !initialized();
}

void ZelCounters::showView(ShowOutput& out, const std::function<TableView()>& view) const {
   if (!answeredUninitialized(out)) {
      out.view(view());
   }
}

void ZelCounters::clearWith(U32 fd, const std::function<void()>& clear) const {
   TextShow out(fd, echo());
   if (!answeredUninitialized(out)) {
      clear();
   }
}

void ZelCounters::showCounters(U32 fd, bool nonZeroOnly) {
   TextShow out(fd, echo());
   showCounters(out, nonZeroOnly);
}

void ZelCounters::showCounters(ShowOutput& out, bool nonZeroOnly) {
   KILN_TRACE(8, "ZelCounters::"
                      << "showCounters");
   showAllTableCounters(out, nonZeroOnly);
   showAllMacCounters(out, nonZeroOnly);
   showAllPipelineCounters(out, nonZeroOnly);
   showAllPdpIntfCounters(out, nonZeroOnly);
   showAllDropCounters(out, nonZeroOnly);
   fetchAllMauDropCounters();
   showAllMauDropCounters(out, nonZeroOnly);
}

void ZelCounters::clearCounters(U32 fd) {
   KILN_TRACE(8, "ZelCounters::"
                      << "clearCounters");
   clearAllTableCounters(fd);
   clearAllMacCounters(fd);
   clearAllPipelineCounters(fd);
   clearAllPdpIntfCounters(fd);
   clearAllTmCounters(fd);
}

} // namespace ZelCounter

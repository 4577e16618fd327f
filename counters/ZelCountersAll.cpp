// The commands that show and clear everything of a chip, and what show and clear operations share.
#include "ZelCounters.h"
#include "ZelCountersTrace.h"

namespace ZelCounter {

void ZelCounters::showView(U32 fd, const std::function<TableView()>& view) const {
   Kiln::TextOutput out(static_cast<int>(fd), echo());
   if (!answeredUninitialized(out)) {
      print(out, view());
   }
}

void ZelCounters::clearWith(U32 fd, const std::function<void()>& clear) const {
   Kiln::TextOutput out(static_cast<int>(fd), echo());
   if (!answeredUninitialized(out)) {
      clear();
   }
}

void ZelCounters::showCounters(U32 fd, bool nonZeroOnly) {
   KILN_TRACE(8, "ZelCounters::"
                      << "showCounters");
   showAllTableCounters(fd, nonZeroOnly);
   showAllMacCounters(fd, nonZeroOnly);
   showAllPipelineCounters(fd, nonZeroOnly);
   showAllPdpIntfCounters(fd, nonZeroOnly);
   showAllDropCounters(fd, nonZeroOnly);
   fetchAllMauDropCounters();
   showAllMauDropCounters(fd, nonZeroOnly);
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

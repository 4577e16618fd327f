// Makes events of breaks.
#include "vex/BreakEvents.h"

#include "kiln/EventLog.h"

namespace Vex {

void tellBreak(const Kiln::String& intf, const Kiln::String& counter, const Break& broken) {
   Kiln::EventLog::instance().record(
        {.kind = broken.isFall() ? Kiln::EventKind::reset : Kiln::EventKind::upset,
         .where = intf,
         .what = counter,
         .hasValues = true,
         .before = broken.before,
         .after = broken.after});
}

void tellDiscontinuity(const Kiln::String& intf, const char* cause) {
   Kiln::EventLog::instance().record({.kind = Kiln::EventKind::discontinuity, .where = intf, .text = cause});
}

} // namespace Vex

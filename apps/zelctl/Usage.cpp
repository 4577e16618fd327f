// What zelctl can be asked, a line each.
#include "Usage.h"

#include "RecordViewer.h"

namespace ZelCtl {

namespace {

constexpr const char* beginning = R"(Usage: zelctl [OPTION]... COMMAND [WORD]...
       zelctl [OPTION]...           a prompt, on a terminal

Words may be shortened while they stay clear; Tab completes them at the prompt.

Dropped frames:  'counters show drop nonzero' says which port dropped them, and why; if it shows
                 nothing, 'counters show pipeline nonzero' says how far they came.

Asks the running zelagent:

   counters show drop               dropped frames of every port, by reason
   counters show drop interface NAME       of one port
   counters show pipeline           packets in, out and dropped by stage of the pipeline
   counters show pipeline stage NAME       of one stage
   counters show mau-deparser-drop  which match-action stage dropped them
   counters show mau-deparser-drop intf NAME   in the pipe of an interface
   counters show traffic-manager    the buffer: drops, cells in use, totals
   counters show mac                MAC counters of every port since the last clear
   counters show mac intf NAME             of one port
   counters show pdp                packets by class
   counters show pdp intf NAME             of one port
   counters show table              every counter table of the P4 program
   counters show table ID|NAME             one of them
   counters show info               which counter tables there are
   counters show                    nearly all of the above
   counters clear [WHAT]            the view counts from zero: mac, pdp, pipeline, drop, mau-deparser-drop,
                                    traffic-manager; 'table [ID|NAME]' zeroes the hardware; else all
      chip NAME                     before show or clear: one chip, as in 'counters chip Zel1 show mac'
      nonzero                       after a show: leaves out what is 0
      pipe N                        after a show of pipeline, table, mau-deparser-drop, traffic-manager
      json                          after a show, last: for programs; every number is an integer

Shows what the agent publishes, straight from the shared tables, also when no agent runs:

)";

constexpr const char* end =
     R"(      INTF                          these interfaces; 'interfaces' shows every counter of those
      nonzero                       leaves out what is 0
      rates                         per second, in the last polling interval
      errors                        errors and discards, and steps too big for the port's speed ("suspect")
      raw                           the chip's own counts, which wrap and may jump, instead of totals
      json                          for programs

Itself:

   watch [SECONDS] SHOW             repeats any show above, every 2 s unless told otherwise: what changed
                                    stands out, with its rate a second; Ctrl-C or q ends it
   help                             prints this
   quit                             leaves the prompt

Options:

   --socket PATH                    the agent's socket; else $ZEL_SOCKET; else zelagent/socket below
                                    $XDG_RUNTIME_DIR, below /run for root, else /tmp/zelagent-UID/socket
   --silo DIR                       the shared tables are in files there; else in shared memory
   --complete LINE                  prints what may come next in the line, for shells
   --help, --version                print this, or the version

A command that is refused prints one line on standard error, beginning "% ", and ends with status 1.
)";

} // namespace

Kiln::String helpText() {
   return beginning + viewCommandsHelp() + end;
}

} // namespace ZelCtl

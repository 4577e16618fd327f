// What zelctl can be asked, a line each.
#include "apps/zelctl/commands/Usage.h"

#include "apps/zelctl/views/RecordViewer.h"

namespace ZelCtl {

namespace {

constexpr const char* beginning = R"(Usage: zelctl [OPTION]... COMMAND [WORD]...
       zelctl [OPTION]...           a prompt, on a terminal

Words may be shortened while they stay clear; Tab completes them at the prompt.

Dropped frames?  'counters show drop nonzero' says which ports dropped them and
why. If that is empty, 'counters show pipeline nonzero' says how far they got.
Those two have drops of the pipeline and of queues; discards of 'interfaces
errors' are the MAC's own, and with '--traffic host' the only ones there are.

counters ...                        asks the running zelagent
   show drop                        dropped frames by port and reason
   show drop interface NAME            of one port
   show pipeline                    packets in, out, dropped by pipeline stage
   show pipeline stage NAME            of one stage
   show mau-deparser-drop           drops by match-action stage
   show mau-deparser-drop intf NAME    of an interface's pipe
   show traffic-manager             the buffer: totals, drops, cells in use
   show mac                         MAC counters of every port
   show mac intf NAME                  of one port
   show pdp                         packets by class
   show pdp intf NAME                  of one port
   show table                       all counter tables of the P4 program
   show table ID|NAME                  one of them
   show info                        which counter tables there are
   show                             nearly all of the above
   clear drop                       'show drop' counts from zero
   clear pipeline                   likewise
   clear mau-deparser-drop          likewise
   clear traffic-manager            likewise
   clear mac                        likewise
   clear pdp                        likewise
   clear table [ID|NAME]            zeroes the hardware's tables, or one; not
                                    those of queues, classes, VLAN interfaces
   clear                            nearly all of the above
     chip NAME                      before show or clear: of one chip only
     nonzero                        after a show: leaves out what is 0
     pipe N                         after a pipeline, mau-deparser-drop,
                                    traffic-manager or table: one pipe's
     json                           after a show: for programs

These show what the agent publishes, from the shared tables, also when none runs
)";

constexpr const char* end = R"(     INTF                           these only; 'interfaces' shows them whole
     nonzero                        leaves out what is 0
     rates                          not of nat: per second, in the last poll
     errors                         of interfaces: errors, discards, and suspect
                                    steps: those too big for the port's speed
     raw                            not of queues, nat: the chip's own counts,
                                    which wrap and may jump
     json                           for programs

These are zelctl's own
   watch [SECONDS] SHOW             repeats any show, every 2 s or as told:
                                    what changed stands out, with its rate a
                                    second; Ctrl-C or q ends it
   help                             prints this
   quit                             leaves the prompt

Options
   --socket PATH                    the agent's socket; else $ZEL_SOCKET; else
                                    zelagent/socket in $XDG_RUNTIME_DIR, in /run
                                    for root, else /tmp/zelagent-UID/socket
   --silo DIR                       the shared tables' folder; else in memory
   --complete LINE                  prints what may come next, for shells
   --help                           prints this
   --version                        prints the version

A command that is refused prints one line on standard error, beginning "% ", and
ends with status 1.
)";

} // namespace

Kiln::String helpText() {
   return beginning + viewCommandsHelp() + end;
}

} // namespace ZelCtl

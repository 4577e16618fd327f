// The text of --help, a line for each command and option.
#include "apps/zelctl/commands/Usage.h"

#include "apps/zelctl/views/RecordViewer.h"

namespace ZelCtl {

namespace {

constexpr const char* beginning = R"(Usage: zelctl [OPTION]... COMMAND [WORD]...
       zelctl [OPTION]...           on a terminal, gives a prompt

Words may be shortened while they stay unique; 'intf' and 'interface' are one.
Tab completes them at the prompt.

Dropped frames?  'counters show drop nonzero' says which ports dropped them and
why; 'watch counters show drop nonzero' which of them still do. If that is
empty, 'counters show pipeline nonzero' says how far they got. 'top by drops'
says which queues drop now, 'interfaces errors' has the MAC's discards beside
the queues' drops; with the agent's '--traffic host' there are no others.

Counts that stand still?  'counters show health' says which chip is silent, and
which counter wrapped or was upset.

counters ...                        asks the running zelagent
   show drop                        dropped frames by port and reason
   show drop interface NAME            of one port
     top N                          after show drop: only the N worst
     final                          where frames were lost in the end, too
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
   show health                      a verdict on each chip: 'help health'
   show                             nearly all of the above
   clear drop                       'show drop' counts from zero
   clear pipeline                   likewise
   clear mau-deparser-drop          likewise
   clear traffic-manager            likewise
   clear mac                        likewise
   clear pdp                        likewise
   clear table [ID|NAME]            zeroes the hardware's tables, or one; not
                                    those of queues, classes, VLAN interfaces
   clear                            all of the above but mau-deparser-drop
     chip NAME                      before show or clear: one chip only
     nonzero                        after a show: leaves out what is 0
     pipe N                         after pipeline, mau-deparser-drop,
                                    traffic-manager or table: one pipe only
     json                           after a show: prints JSON, for programs
log [json]                          the agent's messages for the operator
ringlog [json]                      its diagnostics; both oldest first

These read what an agent published in the shared tables, even if none is running
)";

constexpr const char* end = R"(     INTF                           only these; 'interfaces' shows all counters
                                    of each; also Ethernet1-4,7 and Eth1
     nonzero                        leaves out what is 0
     rates                          of interfaces, queues, vlans, subinterfaces:
                                    per second, over the last polling interval
     errors                         for interfaces: errors, discards, drops of
                                    the queues and suspect steps (too big for
                                    the port's speed)
     raw                            of interfaces, vlans, subinterfaces, nat:
                                    the chip's own counts, which wrap and may
                                    jump
     exact                          every digit of large numbers
     since 5m|clear|14:05:09        counts since then, and mean rates; history
                                    there is of interfaces and queues only
     json                           prints JSON, for programs

   top [by COLUMN]                  the busiest, most dropping and most erring
                                    ports and queues, live on a terminal; by
                                    use, in, out, packets, drops or errors
     last 5m                        by what happened in that time
     json                           prints JSON, for programs

   events [INTF...] [KIND...]       what happened: wraps, upsets, silent chips,
                                    clears, ports and agents that came and went
     last 1h                        back from now
     from 14:05 to 14:10:30         between these times
     follow                         and goes on until Ctrl-C
     json                           prints JSON, for programs

   history INTF... [COUNTER...]     what counters did, as plots; of one counter
                                    a taller one; queue.3 is all of a queue
     last 5m                        back from now, instead of all there is
     from 14:05 to 14:10:30         between these times
     totals                         what was counted, not rates
     json, csv                      prints the samples, for programs

   metrics                          all that is published, as Prometheus reads
                                    it; works without an agent, too
     openmetrics                    in OpenMetrics, with creation times
     collect LIST                   only these, such as interfaces,drops
     no-collect LIST                all but these

These are zelctl's own
   watch [SECONDS] SHOW             repeats any show, every 2 s by default, and
                                    marks what changed, with rates per second;
                                    Ctrl-C or q ends it
   ... | include TEXT               after a command: only lines with the text
   ... | exclude TEXT               only those without
   ... | count                      their number. Lines that say how old counts
                                    are always stay, on standard error
   help [WORD]                      lists the topics, or explains one; a line
                                    that ends in ? lists what may come next
   quit                             leaves the prompt

Options
   --socket PATH                    the agent's socket; default: $ZEL_SOCKET, or
                                    zelagent/socket in $XDG_RUNTIME_DIR, in /run
                                    for root, or /tmp/zelagent-UID/socket; then
                                    those of the service in /run/zelagent
   --silo DIR                       the folder of the shared tables; default:
                                    this user's in shared memory, or root's
   --no-pager                       does not send what is longer than the screen
                                    through $PAGER, or less or more
   --complete LINE                  prints what may come next, for shells
   --help                           prints this
   --version                        prints the version

A refused command prints one line on standard error, beginning "% ", and exits
with status 1.
)";

} // namespace

Kiln::String helpText() {
   return beginning + viewCommandsHelp() + end;
}

} // namespace ZelCtl

// The topics, a line for each word, and guesses.
#include "apps/zelctl/commands/Help.h"

#include "apps/zelctl/commands/CommandWords.h"
#include "apps/zelctl/views/RecordRequest.h"
#include "apps/zelctl/views/TimeWords.h"
#include "apps/zelctl/views/TopView.h"
#include "kiln/Choices.h"

#include <algorithm>
#include <array>
#include <stdexcept>

namespace ZelCtl {

namespace {

using Kiln::String;
using Words = std::vector<String>;

// What a word does; some have more to say.
struct Topic {
   std::string_view word;
   std::string_view line;
   std::string_view more{};
};

constexpr std::array topics{
     Topic{"dropped", "where frames were dropped, and why: begin here", R"(
   counters show drop nonzero       which ports dropped them, and why
   counters show pipeline nonzero   how far frames got, if that is empty
   watch counters show drop nonzero which of them still do
   top by drops                     which queues drop now
   interfaces errors nonzero        the MAC's discards beside the queues' drops

Points: at ingress and egress a program drops a frame for a reason. 'final' has
the same frames again, by where they were lost. Among the reasons, 'same port'
is a frame that would go out where it came in, 'queue congested' one for which
there was no room in the buffer.
)"},
     Topic{"counters", "asks the running agent", R"(
   counters [chip NAME] show WORD...
   counters [chip NAME] clear [WORD...]

'counters show ?' lists the words.
)"},
     Topic{"show", "after counters: shows them", "\n   counters [chip NAME] show WORD...\n"},
     Topic{"clear", "after counters: they count from zero again",
           "\n   counters [chip NAME] clear [WORD...]\n"},
     Topic{"chip", "one chip only: its name follows"},
     Topic{"drop", "dropped frames by reason and port, the worst first",
           "\n   counters show drop [interface INTF] [nonzero] [top N] [final]\n"},
     Topic{"drops", "drops of ports by reason, as published",
           "\n   drops [INTF...] [nonzero] [exact] [json]\n\nTotals, which no clear changes.\n"},
     Topic{"classes", "packets of ports by class, as published",
           "\n   classes [INTF...] [nonzero] [exact] [json]\n\nTotals, which no clear changes.\n"},
     Topic{"mau-drops", "drops by match-action stage, as published",
           "\n   mau-drops [PIPE...] [nonzero] [exact] [json]\n\nTotals, which no clear changes.\n"},
     Topic{"pipeline", "packets in, out and dropped by pipeline stage",
           "\n   counters show pipeline [stage NAME] [pipe N]\n"
           "   pipeline [PIPE...] [nonzero] [exact] [json]\n\n"
           "The second shows what is published: totals, which no clear changes.\n"},
     Topic{"stage", "of one pipeline stage: its name follows"},
     Topic{"mau-deparser-drop", "drops by match-action stage",
           "\n   counters show mau-deparser-drop [intf INTF | pipe N]\n"},
     Topic{"traffic-manager", "the buffer: totals, drops, cells in use",
           "\n   counters show traffic-manager [pipe N]\n"
           "   traffic-manager [PIPE...] [nonzero] [exact] [json]\n\n"
           "The second shows what is published: totals, which no clear changes.\n"},
     Topic{"mac", "MAC counters of ports", "\n   counters show mac [intf INTF]\n"},
     Topic{"pdp", "packets by class", "\n   counters show pdp [intf INTF]\n"},
     Topic{"table", "counter tables of the P4 program", "\n   counters show table [ID|NAME] [pipe N]\n"},
     Topic{"info", "which counter tables there are", "\n   counters show info\n"},
     Topic{"health", "a verdict on each chip, and how old its readings are", R"(
   counters show health [json]
   health [CHIP...] [nonzero] [exact] [json]

The second shows what is published: totals over restarts.

Verdict         ok; degraded: something was not read for three intervals, or
                the last try failed; silent: nothing was read from the hardware
Up              how long the chip has been up
MAC read, Tables, Queues, Traffic manager
                how long ago the oldest good reading of these was
Outstanding     requests that wait for their answer
Refused         requests that the chip refused or answered with an error
Unanswered      requests made again before their answer came: late, or lost
Late            answers that nobody waited for any more
Wraps           counters that ran over 64 bits; totals go on
Upsets          values that cannot be, as after a flipped bit or a reset of the
                hardware; totals leave the step out. The last of both is named
VLANs pending   VLANs without counters, for want of table entries

'ringlog' has each wrap and upset while it lasts. A step that a port's speed
does not allow is a 'suspect' one: 'interfaces errors' counts them.
)"},
     Topic{"wrap", "a counter that ran over 64 bits: 'help health'"},
     Topic{"upset", "a value that cannot be: 'help health'"},
     Topic{"suspect", "a step that is too big for the port's speed: 'help health'"},
     Topic{"silent", "a chip that does not answer: 'help health'"},
     Topic{"reset", "counters of a port that fell together: they began again"},
     Topic{"discontinuity", "a port whose chip came again: its counts go on, or anew"},
     Topic{"port-came", "an interface got a port"},
     Topic{"port-went", "an interface lost its port"},
     Topic{"port-moved", "an interface goes on at another port"},
     Topic{"chip-came", "a chip came up"},
     Topic{"chip-went", "a chip went away"},
     Topic{"chip-silent", "a chip that answers no reads: its counters stand still"},
     Topic{"chip-answers", "a chip that was silent answers again"},
     Topic{"table-full", "a table had no room for an interface"},
     Topic{"table-mended", "a damaged record was made whole"},
     Topic{"table-remade", "a damaged or lost table was made anew"},
     Topic{"agent-started", "an agent began to publish"},
     Topic{"agent-ended", "an agent ended in good order"},
     Topic{"agent-killed", "an agent ended without closing its tables"},
     Topic{"history-anew", "the history of an earlier agent was lost"},
     Topic{"message", "any other message of the operator log"},
     Topic{"stale", "not read for three polling intervals: 'help states'"},
     Topic{"final", "drops also by where frames were lost in the end"},
     Topic{"log", "the agent's messages for operators", "\n   log [json]\n"},
     Topic{"ringlog", "the agent's diagnostics", "\n   ringlog [json]\n"},
     Topic{"interfaces", "counters of ports", R"(
   interfaces [INTF...] [nonzero] [rates] [errors] [raw] [exact] [json]
              [since MOMENT]

Speed, state, use of the line, bits per second, octets, packets, errors and
discards. 'interfaces INTF' shows all counters of one. See 'help states'.
)"},
     Topic{"queues", "counters of egress queues",
           "\n   queues [INTF...] [nonzero] [rates] [exact] [json] [since MOMENT]\n"},
     Topic{"vlans", "counters of VLAN interfaces",
           "\n   vlans [INTF...] [nonzero] [rates] [raw] [exact] [json] [since clear]\n"},
     Topic{"subinterfaces", "counters of subinterfaces",
           "\n   subinterfaces [INTF...] [nonzero] [rates] [raw] [exact] [json] [since clear]\n"},
     Topic{"nat", "what source NAT translated", "\n   nat [INTF...] [nonzero] [raw] [exact] [json]\n"},
     Topic{"events", "what happened, and when", R"(
   events [INTF...] [KIND...] [last DURATION | from TIME to TIME] [follow]
          [json]

   events Ethernet1 last 1h         of one interface; also of a chip or a table
   events wrap upset reset          of these kinds: 'events ?' lists them
   events follow                    goes on until Ctrl-C

Oldest first: when, of which kind, where, what, and values before -> after. What
came again is one line with how often, and when last. It reads shared memory,
also after the agent ended; the newest 4096 are kept.
)"},
     Topic{"since", "counts since a moment, or since the clear", R"(
   interfaces since 5m
   queues since 14:05:09            or with a date: 2026-11-22 14:05:09
   interfaces Ethernet1 since clear

Counts are differences up to the newest sample, rates and use are means over
that time. '-' is a counter without a history. 'since' in a row says where its
counts begin if that is elsewhere; 'begun': there, the record counted from zero.
)"},
     Topic{"follow", "goes on until Ctrl-C"},
     Topic{"last", "back from now: a duration follows, as 90s, 5m or 1h30m"},
     Topic{"from", "a time follows, as 14:05, 14:05:09 or 2026-11-22 14:05:09"},
     Topic{"to", "a time follows, as 14:05, 14:05:09 or 2026-11-22 14:05:09"},
     Topic{"history", "what counters did, as plots", R"(
   history INTF... [COUNTER...] [last DURATION | from TIME to TIME] [totals]
           [json | csv]

   history Ethernet1                     all counters, a line each
   history Ethernet1 in-octets last 5m   one counter, taller
   history Ethernet1 queue.3             packets, bytes and drops of a queue
   history Ethernet1-4 in-pkts from 14:05 to 14:10:30

It reads shared memory, also after the agent ended. A column has the mean of its
rates, 'max' the highest between two samples. Empty columns with '-' below have
no samples; '!' is a discontinuity: a counter wrapped, was upset or reset.
)"},
     Topic{"metrics", "all that is published, as Prometheus reads it", R"(
   metrics [openmetrics] [collect LIST] [no-collect LIST]

   metrics collect interfaces,drops   what follows 'collect ?', with commas

Counts are totals, which nothing clears. It reads shared memory, also if no
agent is running.
)"},
     Topic{"openmetrics", "in OpenMetrics, with creation times and units"},
     Topic{"collect", "only some collectors: their names follow, with commas between"},
     Topic{"no-collect", "all but some collectors: their names follow, with commas between"},
     Topic{"top", "the busiest, most dropping and most erring ports and queues", R"(
   top [by use|in|out|packets|drops|errors] [last DURATION] [json]

On a terminal it goes on until Ctrl-C or q.
)"},
     Topic{"watch", "repeats a show, with rates", R"(
   watch [SECONDS] SHOW

Marks what changed, and gives rates over the time between readings. Ctrl-C or q
ends it.
)"},
     Topic{"names", "how interfaces are written", R"(
   Ethernet1        one
   Eth1             the same, while only one name begins so
   Ethernet1-4      a range
   Ethernet1-4,7    a list

A word that is an interface's name means that interface, whatever else it is.
'intf' and 'interface' are the same word.
)"},
     Topic{"states", "what up, idle, stale and the others mean", R"(
   up               packets passed during the last polling interval
   idle             none did
   no rate          it was read, but nobody knows how many: for the first time,
                    or the last step was an upset
   stale            not read for three polling intervals
   never read       nor ever
   agent gone       no agent is running that could read it
   not supported    there is no such counter; N/A in the agent's tables
   -                not known: as a rate before the second reading
)"},
     Topic{"filters", "which lines of an answer are shown", R"(
   ... | include TEXT   only lines with the text
   ... | exclude TEXT   only those without
   ... | count          their number

Several may follow each other. Lines that say how old counts are always stay, on
standard error. In a shell, quote the command with its filters.
)"},
     Topic{"include", "of the lines, only those with the text that follows: 'help filters'"},
     Topic{"exclude", "of the lines, only those without the text that follows: 'help filters'"},
     Topic{"count", "how many lines: 'help filters'"},
     Topic{"intf", "an interface: 'help names'"},
     Topic{"interface", "an interface: 'help names'"},
     Topic{"nonzero", "leaves out what is 0"},
     Topic{"pipe", "one pipe only: its number follows"},
     Topic{"rates", "per second, over the last polling interval"},
     Topic{"errors", "errors, discards and queue drops"},
     Topic{"raw", "the chip's own counts, which wrap and may jump"},
     Topic{"exact", "every digit of large numbers"},
     Topic{"json", "for programs"},
     Topic{"last", "counted back from now: a duration as 90s, 5m or 1h30m follows"},
     Topic{"from", "a time as 14:05, 14:05:09 or 2026-11-22 14:05:09 follows"},
     Topic{"to", "a time as 14:05, 14:05:09 or 2026-11-22 14:05:09 follows"},
     Topic{"totals", "what was counted, not rates"},
     Topic{"csv", "for spreadsheets: a line for each sample"},
     Topic{"by", "the column to rank by follows"},
     Topic{"help", "what there is to type; 'help WORD' explains a word"},
     Topic{"quit", "leaves the prompt"},
     Topic{"exit", "leaves the prompt"}};

const Topic* topicNamed(std::string_view word) {
   const auto* const found = std::ranges::find(topics, word, &Topic::word);
   return found == topics.end() ? nullptr : &*found;
}

String lineOf(std::string_view word, std::string_view meaning) {
   constexpr std::size_t column = 18;
   String line = "   " + String(word);
   line.resize(std::max(line.size() + 1, 3 + column), ' ');
   return line + String(meaning) + "\n";
}

constexpr std::string_view clearHelp =
     "when what is published was cleared; 'counters clear' does not do that";

// What may follow a word such as `last`.
String helpOnTimes(const String& before) {
   String text;
   if (before == "last" || before == "since") {
      text += lineOf("5m", "so long before now; also as 90s, 1m, 15m or 1h30m");
   }
   if (before != "last") {
      text += lineOf("HH:MM:SS", "a time; also as 14:05, or 2026-11-22 14:05:09 with its date");
   }
   if (before == "since") {
      text += lineOf("clear", clearHelp);
   }
   return text;
}

} // namespace

Words helpTopics() {
   Words all;
   for (const Topic& topic : topics) {
      all.emplace_back(topic.word);
   }
   return all;
}

String helpOn(const Words& words) {
   if (words.size() < 2) {
      String text = "'help WORD' explains one of these. A line that ends in ? lists what may come\n"
                    "next. 'zelctl --help' has everything.\n\n";
      for (const Topic& topic : topics) {
         text += topic.more.empty() ? "" : lineOf(topic.word, topic.line);
      }
      return text;
   }
   // Of a line, the last word is in question.
   const Words all = helpTopics();
   const String& word = words.back();
   const Words meant = Kiln::wordsMeant(word, all);
   if (meant.empty()) {
      throw std::runtime_error("no help on " + Kiln::quoted(word) + ": " +
                               Kiln::meantOrExpected(word, all, "a word that 'help' lists"));
   }
   String text;
   for (const String& one : meant) {
      const Topic& topic = *topicNamed(one);
      text += (text.empty() ? "" : "\n") + one + ": " + String(topic.line) + "\n" + String(topic.more);
   }
   return text;
}

String helpOnNext(const Words& candidates, const String& before) {
   if (isTimeWord(before) &&
       (before == "from" || before == "to" || std::ranges::find(candidates, "5m") != candidates.end())) {
      return helpOnTimes(before);
   }
   if (before == "since" && candidates == Words{"clear"}) {
      return lineOf("clear", clearHelp);
   }
   if (candidates.empty()) {
      return "   nothing more, or a word that zelctl does not know\n";
   }
   String text;
   Words names;
   for (const String& word : candidates) {
      if (const Topic* const topic = topicNamed(word)) {
         text += lineOf(word, topic->line);
      } else {
         names.push_back(word);
      }
   }
   return text + (names.empty() ? "" : lineOf("one of", Kiln::nameRanges(names)));
}

namespace {

const Words shown{"drop", "pipeline", "mau-deparser-drop", "traffic-manager", "mac", "pdp", "table",
                  "info", "health"};

} // namespace

bool isAgentShow(const String& word) {
   return std::ranges::find(shown, word) != shown.end();
}

String rightCommand(const Words& words) {
   constexpr std::size_t least = 2; // letters of an abbreviation that is worth a guess
   // The command, and the words from there on.
   const auto with = [&](String command, std::size_t from) {
      for (std::size_t i = from; i < words.size(); ++i) {
         command += ' ';
         command += words[i];
      }
      return command;
   };
   const String& first = words.front();
   const bool isShow = first.size() >= least && String("show").starts_with(first);
   const bool isClear = first.size() >= least && String("clear").starts_with(first);
   if (isShow && words.size() > 1 && !isAgentShow(words[1])) {
      const String command = commandNamed(words[1]);
      if (isRecordCommand(command) || isLog(command)) {
         return with(command, 2);
      }
   }
   if (isShow || isClear) {
      return with(isShow ? "counters show" : "counters clear", 1);
   }
   if (first.size() >= least && (first == "chip" || !Kiln::wordsMeant(first, shown).empty())) {
      return with(first == "chip" ? "counters" : "counters show", 0);
   }
   const String near = Kiln::nearest(first, allCommands());
   return near.empty() ? "" : with(near, 1);
}

} // namespace ZelCtl

// What each command does on a chip. Tables, pipes and interfaces in the arguments exist; the chip is initialized.
#include "counters/cli/CommandTable.h"

#include "counters/cli/HealthView.h"

#include <array>

namespace ZelCounter {

namespace {

using enum Takes::Option;
using Chip = ZelCounters;
using Out = ShowOutput;
using Args = ChipArguments;

// Without a table, a pipe means every table that has it; a symmetric one has no pipes to tell apart. Whether a table has
// them is not known before it is initialized: each of these says so.
template <class Visit>
void forEachPerPipeTable(const Chip& chip, Visit visit) {
   for (U32 id = 0; id < chip.tablesNum() && !chip.isStopped(); ++id) {
      if (chip.perPipeCounter(id) || !chip.initializedCounter(id)) {
         visit(id);
      }
   }
}

void showTable(Chip& chip, Out& out, const Args& args) {
   if (!args.tableId && !args.pipe) {
      chip.showAllTableCounters(out, args.nonZeroOnly);
   } else if (!args.pipe) {
      chip.showTableCounters(out, *args.tableId, args.nonZeroOnly);
   } else if (args.tableId) {
      chip.showTableCountersPipe(out, *args.tableId, *args.pipe, args.nonZeroOnly);
   } else {
      forEachPerPipeTable(chip, [&](U32 id) {
         chip.showTableCountersPipe(out, id, *args.pipe, args.nonZeroOnly);
         out.blankLine();
      });
   }
}

// Of a table that is not initialized the SDK takes no write, which would be fatal: it is answered as a show is.
void clearOneTable(Chip& chip, Out& out, U32 id, Pipes pipes) {
   if (chip.tables().otherClear(*chip.zlResourceInfoIntf()->zlTableCounter(id)) != nullptr) {
      return;
   }
   if (!chip.initializedCounter(id)) {
      out.noTable("", TableCounters::uninitializedText(id));
      return;
   }
   for (const U16 pipe : pipes) {
      chip.clearTableCounters(out, id, pipe);
   }
}

void clearTable(Chip& chip, Out& out, const Args& args) {
   if (!args.tableId && !args.pipe) {
      for (U32 id = 0; id < chip.tablesNum() && !chip.isStopped(); ++id) {
         clearOneTable(chip, out, id, chip.tablePipes(id));
      }
   } else if (!args.pipe) {
      clearOneTable(chip, out, *args.tableId, chip.tablePipes(*args.tableId));
   } else if (!args.tableId) {
      forEachPerPipeTable(chip, [&](U32 id) { clearOneTable(chip, out, id, chip.pipes(args.pipe)); });
   } else if (chip.perPipeCounter(*args.tableId) || !chip.initializedCounter(*args.tableId)) {
      clearOneTable(chip, out, *args.tableId, chip.pipes(args.pipe));
   } else {
      // As the show operation answers it.
      out.noTable("", symmetricText);
   }
}

bool areTablesInitialized(const Chip& chip) {
   for (U32 id = 0; id < chip.tablesNum(); ++id) {
      if (!chip.initializedCounter(id)) {
         return false;
      }
   }
   return true;
}

// The show asserts that the interface was fetched, and a port that the P4 program doesn't count by class never is.
void showPdpIntf(Chip& chip, Out& out, const Args& args) {
   chip.fetchPdpCounters();
   if (chip.pdpCountersFetched() && !chip.pdpCountersLast().contains(args.intf)) {
      out.noTable("PDP Class Counters",
                  "No PDP counters of interface " + args.intf.text() + ": its port has none");
      return;
   }
   chip.showPdpIntfCounters(out, args.intf, false, args.nonZeroOnly, true);
}

void showDrops(Chip& chip, Out& out, const Args& args) {
   DropOptions options{args.intf, args.nonZeroOnly, args.isFinalShown};
   if (args.top) {
      options.top = *args.top;
   }
   chip.portDrops().show(out, options);
}

// A chip without counter tables has no PDP counters to fetch.
void fetchPdpWherePresent(Chip& chip) {
   if (chip.zlResourceInfoIntf()) {
      chip.fetchPdpCounters();
   }
}

// Before a clear, which takes them as fetched last whether this succeeds or not.
void fetchPdpToClear(Chip& chip, Out& out) {
   fetchPdpWherePresent(chip);
   if (chip.zlResourceInfoIntf() && !chip.pdpCountersFetched()) {
      PdpCounters::answerNotFetched(out);
   }
}

constexpr unsigned view = nonZero | json; // what every show of counts takes

constexpr std::array table{
     CommandRow{"show info", Operand::none, json, true,
                [](Chip& chip, Out& out, const Args&) { chip.showCountersInfo(out); }},
     CommandRow{"show table", Operand::table, view | pipe, true, showTable},
     CommandRow{"show mac intf", Operand::interface, view, false,
                [](Chip& chip, Out& out, const Args& args) {
                   chip.showMacCounters(out, args.intf, args.nonZeroOnly);
                }},
     CommandRow{
          "show mac", Operand::none, view, false,
          [](Chip& chip, Out& out, const Args& args) { chip.showAllMacCounters(out, args.nonZeroOnly); }},
     CommandRow{"show pdp intf", Operand::interface, view, true, showPdpIntf},
     CommandRow{"show pdp", Operand::none, view, true,
                [](Chip& chip, Out& out, const Args& args) {
                   chip.fetchPdpCounters();
                   chip.showAllPdpIntfCounters(out, args.nonZeroOnly);
                }},
     CommandRow{"show pipeline stage", Operand::stage, view | pipe, false,
                [](Chip& chip, Out& out, const Args& args) {
                   chip.pipeline().show(out, args.stage, args.nonZeroOnly, args.pipe);
                }},
     CommandRow{"show pipeline", Operand::none, view | pipe, false,
                [](Chip& chip, Out& out, const Args& args) {
                   chip.pipeline().showAll(out, args.nonZeroOnly, args.pipe);
                }},
     CommandRow{"show drop interface", Operand::interface, view | final, false, showDrops},
     CommandRow{"show drop", Operand::none, view | final | top, false, showDrops},
     CommandRow{"show mau-deparser-drop intf", Operand::interface, view, false,
                [](Chip& chip, Out& out, const Args& args) {
                   chip.fetchAllMauDropCounters();
                   chip.mauDrops().show(out, args.intf, args.nonZeroOnly);
                }},
     CommandRow{"show mau-deparser-drop", Operand::none, view | pipe, false,
                [](Chip& chip, Out& out, const Args& args) {
                   chip.fetchAllMauDropCounters();
                   chip.mauDrops().showAll(out, args.nonZeroOnly, args.pipe);
                }},
     CommandRow{"show traffic-manager", Operand::none, view | pipe, false,
                [](Chip& chip, Out& out, const Args& args) {
                   chip.tm().showAll(out, args.nonZeroOnly, args.pipe);
                }},
     CommandRow{"show health", Operand::none, json, false,
                [](Chip& chip, Out& out, const Args& args) {
                   out.view(healthView(chip, *args.mgr, args.isFirst), TableLayout::overview);
                }},
     CommandRow{"show", Operand::none, view, false,
                [](Chip& chip, Out& out, const Args& args) {
                   fetchPdpWherePresent(chip);
                   chip.showCounters(out, args.nonZeroOnly);
                }},
     CommandRow{"clear table", Operand::table, pipe, true, clearTable},
     CommandRow{"clear mac", Operand::none, nothing, false,
                [](Chip& chip, Out& out, const Args&) { chip.clearAllMacCounters(out); }},
     CommandRow{"clear pdp", Operand::none, nothing, true,
                [](Chip& chip, Out& out, const Args&) {
                   fetchPdpToClear(chip, out);
                   chip.clearAllPdpIntfCounters(out);
                }},
     CommandRow{"clear traffic-manager", Operand::none, nothing, false,
                [](Chip& chip, Out& out, const Args&) { chip.clearAllTmCounters(out); }},
     CommandRow{"clear pipeline", Operand::none, nothing, false,
                [](Chip& chip, Out& out, const Args&) { chip.clearAllPipelineCounters(out); }},
     CommandRow{"clear drop", Operand::none, nothing, false,
                [](Chip& chip, Out& out, const Args&) { chip.portDrops().clearAll(out); }},
     CommandRow{"clear mau-deparser-drop", Operand::none, nothing, false,
                [](Chip& chip, Out& out, const Args&) {
                   chip.fetchAllMauDropCounters();
                   chip.mauDrops().clearAll(out);
                }},
     CommandRow{"clear", Operand::none, nothing, false,
                [](Chip& chip, Out& out, const Args&) {
                   fetchPdpToClear(chip, out);
                   if (areTablesInitialized(chip)) {
                      chip.clearCounters(out);
                   } else {
                      clearTable(chip, out, {});
                      chip.clearAllButTables(out); // nothing, if the chip has gone meanwhile
                   }
                }},
};

} // namespace

std::string_view CommandRow::keywordAt(std::size_t depth) const {
   std::string_view left = keywords;
   for (; depth > 0 && !left.empty(); --depth) {
      const std::size_t blank = left.find(' ');
      left.remove_prefix(blank == std::string_view::npos ? left.size() : blank + 1);
   }
   return left.substr(0, left.find(' '));
}

std::span<const CommandRow> commandTable() {
   return table;
}

} // namespace ZelCounter

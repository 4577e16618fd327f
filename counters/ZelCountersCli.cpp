// The grammar of the diagnostic counters commands, and the parser that reads it.
#include "counters/ZelCountersCli.h"

#include "counters/ZelCountersMgrCli.h"
#include "counters/show/TextShow.h"
#include "kiln/Choices.h"

#include <algorithm>
#include <array>

namespace ZelCounter {

namespace {

// An interface or a stage has to be named; a table may be.
enum class Operand : U8 { none, interface, table, stage };

enum Takes : U8 { nothing = 0, nonZero = 1, pipe = 2, json = 4 };

// One command. `takes` are its options.
struct Row {
   std::string_view keywords;
   Operand operand;
   unsigned takes;
   bool needsTables;
   ChipOperation operation;
};

void showMacIntf(ZelCounters& chip, ShowOutput& out, const ChipArguments& arguments) {
   chip.showMacCounters(out, arguments.intf, arguments.nonZeroOnly);
}

void showMac(ZelCounters& chip, ShowOutput& out, const ChipArguments& arguments) {
   chip.showAllMacCounters(out, arguments.nonZeroOnly);
}

void clearMac(ZelCounters& chip, U32 fd, const ChipArguments& /*arguments*/) {
   chip.clearAllMacCounters(fd);
}

void showInfo(ZelCounters& chip, ShowOutput& out, const ChipArguments& /*arguments*/) {
   chip.showCountersInfo(out);
}

// The tables that one pipe is asked of when no table is named: a symmetric one has no pipes to tell apart.
template <class Visit>
void forEachPerPipeTable(const ZelCounters& chip, Visit visit) {
   for (U32 id = 0; id < chip.zlResourceInfoIntf()->zlTableCountersNum(); ++id) {
      if (chip.perPipeCounter(id)) {
         visit(id);
      }
   }
}

void showTable(ZelCounters& chip, ShowOutput& out, const ChipArguments& arguments) {
   const bool nonZeroOnly = arguments.nonZeroOnly;
   if (!arguments.tableId && !arguments.pipe) {
      chip.showAllTableCounters(out, nonZeroOnly);
   } else if (!arguments.pipe) {
      chip.showTableCounters(out, *arguments.tableId, nonZeroOnly);
   } else if (arguments.tableId) {
      chip.showTableCountersPipe(out, *arguments.tableId, *arguments.pipe, nonZeroOnly);
   } else {
      forEachPerPipeTable(chip, [&](U32 id) {
         chip.showTableCountersPipe(out, id, *arguments.pipe, nonZeroOnly);
         out.blankLine();
      });
   }
}

void clearTable(ZelCounters& chip, U32 fd, const ChipArguments& arguments) {
   if (!arguments.tableId && !arguments.pipe) {
      chip.clearAllTableCounters(fd);
   } else if (!arguments.pipe) {
      const ZelCounters::PipeRange pipes = chip.tablePipes(*arguments.tableId);
      for (U32 pipe = pipes.first; pipe <= pipes.last; ++pipe) {
         chip.clearTableCounters(fd, *arguments.tableId, static_cast<U16>(pipe));
      }
   } else if (!arguments.tableId) {
      forEachPerPipeTable(chip, [&](U32 id) { chip.clearTableCounters(fd, id, *arguments.pipe); });
   } else if (chip.perPipeCounter(*arguments.tableId)) {
      chip.clearTableCounters(fd, *arguments.tableId, *arguments.pipe);
   } else {
      // As the show operation answers it.
      TextShow(fd, ZelCounters::echo()).noTable("", symmetricText);
   }
}

void showPdpIntf(ZelCounters& chip, ShowOutput& out, const ChipArguments& arguments) {
   chip.fetchPdpCounters();
   if (chip.pdpCountersFetched() && !chip.pdpCountersLast().contains(arguments.intf)) {
      out.noTable("PDP Class Counters",
                  "No PDP counters of interface " + arguments.intf.text() + ": its port has none");
      return;
   }
   chip.showPdpIntfCounters(out, arguments.intf, false, arguments.nonZeroOnly, true);
}

void showPdp(ZelCounters& chip, ShowOutput& out, const ChipArguments& arguments) {
   chip.fetchPdpCounters();
   chip.showAllPdpIntfCounters(out, arguments.nonZeroOnly);
}

void clearPdp(ZelCounters& chip, U32 fd, const ChipArguments& /*arguments*/) {
   chip.fetchPdpCounters();
   chip.clearAllPdpIntfCounters(fd);
}

void showPipelineStage(ZelCounters& chip, ShowOutput& out, const ChipArguments& arguments) {
   chip.showPipelineCounters(out, arguments.stage, arguments.nonZeroOnly, arguments.pipe);
}

void showPipeline(ZelCounters& chip, ShowOutput& out, const ChipArguments& arguments) {
   chip.showAllPipelineCounters(out, arguments.nonZeroOnly, arguments.pipe);
}

void clearPipeline(ZelCounters& chip, U32 fd, const ChipArguments& /*arguments*/) {
   chip.clearAllPipelineCounters(fd);
}

void showDropIntf(ZelCounters& chip, ShowOutput& out, const ChipArguments& arguments) {
   chip.showDropCounters(out, arguments.intf, arguments.nonZeroOnly);
}

void showDrop(ZelCounters& chip, ShowOutput& out, const ChipArguments& arguments) {
   chip.showAllDropCounters(out, arguments.nonZeroOnly);
}

void clearDrop(ZelCounters& chip, U32 fd, const ChipArguments& /*arguments*/) {
   chip.clearAllDropCounters(fd);
}

void showMauDropIntf(ZelCounters& chip, ShowOutput& out, const ChipArguments& arguments) {
   chip.fetchAllMauDropCounters();
   chip.showMauDropCounters(out, arguments.intf, arguments.nonZeroOnly);
}

void showMauDrop(ZelCounters& chip, ShowOutput& out, const ChipArguments& arguments) {
   chip.fetchAllMauDropCounters();
   chip.showAllMauDropCounters(out, arguments.nonZeroOnly, arguments.pipe);
}

void clearMauDrop(ZelCounters& chip, U32 fd, const ChipArguments& /*arguments*/) {
   chip.fetchAllMauDropCounters();
   chip.clearAllMauDropCounters(fd);
}

void showTm(ZelCounters& chip, ShowOutput& out, const ChipArguments& arguments) {
   chip.showAllTmCounters(out, arguments.nonZeroOnly, arguments.pipe);
}

void clearTm(ZelCounters& chip, U32 fd, const ChipArguments& /*arguments*/) {
   chip.clearAllTmCounters(fd);
}

// A chip without counter tables has no PDP counters to fetch.
void fetchPdpWherePresent(ZelCounters& chip) {
   if (chip.zlResourceInfoIntf()) {
      chip.fetchPdpCounters();
   }
}

void showAll(ZelCounters& chip, ShowOutput& out, const ChipArguments& arguments) {
   fetchPdpWherePresent(chip);
   chip.showCounters(out, arguments.nonZeroOnly);
}

void clearAll(ZelCounters& chip, U32 fd, const ChipArguments& /*arguments*/) {
   fetchPdpWherePresent(chip);
   chip.clearCounters(fd);
}

constexpr std::array rows{
     Row{"show info", Operand::none, json, true, showInfo},
     Row{"show table", Operand::table, nonZero | pipe | json, true, showTable},
     Row{"show mac intf", Operand::interface, nonZero | json, false, showMacIntf},
     Row{"show mac", Operand::none, nonZero | json, false, showMac},
     Row{"show pdp intf", Operand::interface, nonZero | json, true, showPdpIntf},
     Row{"show pdp", Operand::none, nonZero | json, true, showPdp},
     Row{"show pipeline stage", Operand::stage, nonZero | pipe | json, false, showPipelineStage},
     Row{"show pipeline", Operand::none, nonZero | pipe | json, false, showPipeline},
     Row{"show drop interface", Operand::interface, nonZero | json, false, showDropIntf},
     Row{"show drop", Operand::none, nonZero | json, false, showDrop},
     Row{"show mau-deparser-drop intf", Operand::interface, nonZero | json, false, showMauDropIntf},
     Row{"show mau-deparser-drop", Operand::none, nonZero | pipe | json, false, showMauDrop},
     Row{"show traffic-manager", Operand::none, nonZero | pipe | json, false, showTm},
     Row{"show", Operand::none, nonZero | json, false, showAll},
     Row{"clear table", Operand::table, pipe, true, clearTable},
     Row{"clear mac", Operand::none, nothing, false, clearMac},
     Row{"clear pdp", Operand::none, nothing, true, clearPdp},
     Row{"clear traffic-manager", Operand::none, nothing, false, clearTm},
     Row{"clear pipeline", Operand::none, nothing, false, clearPipeline},
     Row{"clear drop", Operand::none, nothing, false, clearDrop},
     Row{"clear mau-deparser-drop", Operand::none, nothing, false, clearMauDrop},
     Row{"clear", Operand::none, nothing, false, clearAll},
};

constexpr std::string_view chipKeyword = "chip";
constexpr std::string_view nonZeroOption = "nonzero";
constexpr std::string_view pipeOption = "pipe";
constexpr std::string_view jsonOption = "json";

// The row's keyword at a depth; empty beyond its last.
std::string_view keywordAt(const Row& row, std::size_t depth) {
   std::string_view left = row.keywords;
   for (; depth > 0 && !left.empty(); --depth) {
      const std::size_t blank = left.find(' ');
      left.remove_prefix(blank == std::string_view::npos ? left.size() : blank + 1);
   }
   return left.substr(0, left.find(' '));
}

class Parser {
 public:
   Parser(const std::vector<Kiln::String>& words, const ZelCountersMgrCli& mgrCli)
        : words_(words), mgrCli_(mgrCli) {
      for (const Row& row : rows) {
         candidates_.push_back(&row);
      }
   }

   // Empty, with the command filled in, or what is wrong.
   Kiln::String parse(ZelCountersCommand* command) {
      command_ = command;
      const Row* row = nullptr;
      if (parseChip()) {
         row = parseKeywords();
      }
      if (row != nullptr && parseOperand(*row)) {
         parseOptions(*row);
         command_->operation = row->operation;
         command_->needsTables = row->needsTables;
      }
      return error_;
   }

   // What the word after them may be, once they were parsed.
   const std::vector<Kiln::String>& next() const { return next_; }

 private:
   using Words = std::vector<Kiln::String>;

   bool atEnd() const { return at_ == words_.size(); }

   // The next word may be one of these: said wherever one would be taken.
   void expect(const Words& words) {
      if (atEnd()) {
         next_.insert(next_.end(), words.begin(), words.end());
      }
   }

   // "'show mac'", what was understood so far; nothing at the beginning.
   Kiln::String understood() const {
      Kiln::String all;
      for (std::size_t i = 0; i < at_; ++i) {
         all += (all.empty() ? "" : " ") + words_[i];
      }
      return all.empty() ? "" : " after " + Kiln::quoted(all);
   }

   // The one of the choices that the next word is, or abbreviates; else empty, with the error. `mayEnd` adds
   // to the error that the command may also end here.
   Kiln::String choose(const Words& all, bool mayEnd) {
      expect(all);
      Words expectedHere = all;
      if (mayEnd) {
         expectedHere.emplace_back("nothing more");
      }
      const Kiln::String expected = Kiln::choices(expectedHere);
      if (atEnd()) {
         error_ = "the command is incomplete" + understood() + ": expected " + expected;
         return "";
      }
      const Kiln::String& word = words_[at_];
      Words meant;
      for (const Kiln::String& choice : all) {
         if (choice == word) {
            meant = {choice};
            break;
         }
         if (choice.compare(0, word.size(), word) == 0) {
            meant.push_back(choice);
         }
      }
      if (meant.size() == 1) {
         ++at_;
         return meant.front();
      }
      error_ = meant.empty() ? "unexpected " + Kiln::quoted(word) + understood() + ": expected " + expected
                             : Kiln::quoted(word) + " is ambiguous" + understood() + ": expected " +
                                    Kiln::choices(meant);
      return "";
   }

   Words nextKeywords() const {
      Words next;
      for (const Row* row : candidates_) {
         const Kiln::String keyword(keywordAt(*row, depth_));
         if (!keyword.empty() && std::find(next.begin(), next.end(), keyword) == next.end()) {
            next.push_back(keyword);
         }
      }
      return next;
   }

   // The row that the keywords so far spell out, or none.
   const Row* completeRow() const {
      const auto found = std::find_if(candidates_.begin(), candidates_.end(),
                                      [this](const Row* row) { return keywordAt(*row, depth_).empty(); });
      return found == candidates_.end() ? nullptr : *found;
   }

   static Words optionsOf(const Row& row) {
      Words options;
      if ((row.takes & pipe) != 0) {
         options.emplace_back(pipeOption);
      }
      if ((row.takes & nonZero) != 0) {
         options.emplace_back(nonZeroOption);
      }
      if ((row.takes & json) != 0) {
         options.emplace_back(jsonOption);
      }
      return options;
   }

   void take(const Kiln::String& keyword) {
      std::erase_if(candidates_, [&](const Row* row) { return keywordAt(*row, depth_) != keyword; });
      ++depth_;
   }

   // The optional "chip NAME", and the first keyword, which is told from it.
   bool parseChip() {
      Words first = nextKeywords();
      first.emplace_back(chipKeyword);
      Kiln::String chosen = choose(first, false);
      if (chosen == chipKeyword) {
         expect(mgrCli_.chipNames());
         if (atEnd()) {
            error_ = "chip needs a name: " + mgrCli_.chipChoices();
            return false;
         }
         command_->chip = words_[at_++];
         chosen = choose(nextKeywords(), false);
      }
      if (chosen.empty()) {
         return false;
      }
      take(chosen);
      return true;
   }

   // Narrows the rows by keywords until one is left that the rest of the words is for.
   const Row* parseKeywords() {
      for (;;) {
         const Row* row = completeRow();
         const Words keywords = nextKeywords();
         if (row != nullptr && (keywords.empty() || atEnd())) {
            expect(keywords);
            return row;
         }
         Words all = keywords;
         const std::size_t before = at_;
         if (row != nullptr) {
            const Words options = optionsOf(*row);
            all.insert(all.end(), options.begin(), options.end());
         }
         const Kiln::String chosen = choose(all, row != nullptr);
         if (chosen.empty()) {
            return nullptr;
         }
         if (std::find(keywords.begin(), keywords.end(), chosen) == keywords.end()) {
            at_ = before; // an option: parsed with the others
            return row;
         }
         take(chosen);
      }
   }

   bool parseOperand(const Row& row) {
      if (row.operand == Operand::table && atEnd()) {
         expect(mgrCli_.tableNames(command_->chip, std::holds_alternative<ClearOperation>(row.operation)));
      } else if (row.operand == Operand::table && isTable(row)) {
         command_->table = words_[at_++];
      }
      if (row.operand == Operand::stage) {
         return parseStage();
      }
      if (row.operand != Operand::interface) {
         return true;
      }
      if (atEnd()) {
         expect(mgrCli_.interfaceNames(command_->chip));
         error_ = "the command is incomplete" + understood() + ": expected an interface's name";
         return false;
      }
      command_->intf = words_[at_++];
      return true;
   }

   bool parseStage() {
      const auto names = ZelCounters::pipelineStages();
      const Kiln::String chosen = choose(Words(names.begin(), names.end()), false);
      command_->stage = static_cast<U32>(std::find(names.begin(), names.end(), chosen) - names.begin());
      return !chosen.empty();
   }

   // A table may be left out, so that the next word may be an option instead: it is when it abbreviates one and
   // is no table's whole name.
   bool isTable(const Row& row) const {
      const Kiln::String& word = words_[at_];
      const Words options = optionsOf(row);
      return mgrCli_.isTableName(word) ||
             std::none_of(options.begin(), options.end(), [&](const Kiln::String& option) {
                return option.compare(0, word.size(), word) == 0;
             });
   }

   void parseOptions(const Row& row) {
      Words left = optionsOf(row);
      while (!atEnd()) {
         const Kiln::String chosen = choose(left, true);
         if (chosen.empty() || (chosen == pipeOption && !parsePipe())) {
            return;
         }
         std::erase(left, chosen);
         command_->nonZeroOnly |= chosen == nonZeroOption;
         command_->json |= chosen == jsonOption;
      }
      expect(left);
   }

   bool parsePipe() {
      if (atEnd()) {
         expect(mgrCli_.pipeNumbers(command_->chip));
         error_ = "pipe needs a pipe's number";
         return false;
      }
      command_->pipe = words_[at_++];
      return true;
   }

   const Words& words_;
   const ZelCountersMgrCli& mgrCli_;
   std::size_t at_ = 0;    // the next word
   std::size_t depth_ = 0; // keywords taken
   std::vector<const Row*> candidates_;
   ZelCountersCommand* command_ = nullptr;
   Kiln::String error_;
   Words next_;
};

} // namespace

ZelCountersCli::ZelCountersCli(Kiln::Name name, Kiln::String commandType, ZelCountersMgr* mgr)
     : AgentCommandCallback(name, std::move(commandType)), mgr_(mgr) {}

Agent::CommandResult ZelCountersCli::command(const std::vector<Kiln::String>& words, int fd) {
   if (mgr_ == nullptr) {
      return {"nobody answers any more: try again when the agent is up"};
   }
   const ZelCountersMgrCli mgrCli(mgr_);
   ZelCountersCommand command;
   const Kiln::String error = Parser(words, mgrCli).parse(&command);
   if (!error.empty()) {
      return {error};
   }
   return mgrCli.run(command, fd);
}

std::vector<Kiln::String> ZelCountersCli::completions(const std::vector<Kiln::String>& words) const {
   if (mgr_ == nullptr) {
      return {};
   }
   const ZelCountersMgrCli mgrCli(mgr_);
   ZelCountersCommand command;
   Parser parser(words, mgrCli);
   parser.parse(&command);
   return mgrCli.areNamesKnown(command) ? parser.next() : std::vector<Kiln::String>();
}

} // namespace ZelCounter

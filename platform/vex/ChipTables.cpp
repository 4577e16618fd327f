// Opens the tables, and does to all of them what is done to one.
#include "vex/ChipTables.h"

namespace Vex {

namespace TableName = Silo::Interface::TableName;

ChipTables::ChipTables(const Silo::Store& store, const Options& options)
     : places_(store, TableName::intfPlaces, {}, options.ofIntfs),
       drops_(store, TableName::intfDropCounters, {}, options.ofIntfs),
       classes_(store, TableName::intfPdpCounters, {}, options.ofIntfs),
       stages_(store, TableName::pipeStageCounters, {}, options.ofPipes),
       pipeDrops_(store, TableName::pipeDropCounters, {}, options.ofPipes),
       trafficManager_(store, TableName::pipeTmCounters, {}, options.ofPipes),
       chipHealth_(store, TableName::chipHealth, {}, options.ofChips),
       agentHealth_(store, TableName::agentHealth, {}, options.ofChips), agentVersion_(options.agentVersion) {
}

void ChipTables::mend(const std::function<bool()>& goesOn) {
   bool isOver = false;
   forEach([&](auto& table) {
      if (!isOver) {
         table.mend();
         isOver = !goesOn();
      }
   });
}

void ChipTables::keep() {
   forEach([](auto& table) { table.keep(); });
}

void ChipTables::pollingIntervalIs(double seconds) {
   forEachPolled([seconds](auto& table) { table.pollingIntervalIs(seconds); });
}

void ChipTables::syncIntervalIs(double seconds) {
   forEachSynced([seconds](auto& table) { table.pollingIntervalIs(seconds); });
}

} // namespace Vex

// Looks at a table's header before anything else of it is believed.
#include "silo/TableAttachment.h"

#include "silo/Errors.h"
#include "silo/Patience.h"

namespace Silo {

bool TableAttachment::refresh(bool isThorough, bool& hasChanged) {
   hasChanged = false;
   if (mapping_.size() != 0 && header().stateSequence() == stateSequence_ &&
       !(isThorough && mapping_.isStale())) {
      return true;
   }
   // Given up before a new one is found: a table that was replaced must not pass for a current one.
   mapping_ = {};
   hasChanged = true;
   try {
      attach();
      return true;
   } catch (const TableError& error) {
      // Kept, not thrown: the writer may be just restarting, and the next read tries again.
      problem_ = error.what();
      return false;
   }
}

void TableAttachment::attach() {
   Mapping mapping = store_.openForReading(name_);
   std::string who = store_.describe(name_) + " ";
   if (const std::size_t least = sizeFor_(mapping, {});
       mapping.size() < std::max(least, sizeof(TableHeader))) {
      throw TableError(who + "is too short: it has " + std::to_string(mapping.size()) +
                       " bytes, expected at least " + std::to_string(std::max(least, sizeof(TableHeader))) +
                       "; its writer is just starting, or it is no table");
   }
   auto& header = *reinterpret_cast<const TableHeader*>(mapping.data());
   const auto fail = [&](const std::string& problem) {
      throw TableError(who + (mapping.isLost() ? "was cut short while it was read" : problem));
   };
   if (std::string problem = header.identityProblem(layout_); !problem.empty()) {
      fail(problem);
   }
   Patience patience(mapping);
   TableState state;
   // Taken before the state: if the state changes in between, this sequence is out of date, and the next read attaches
   // again.
   std::uint64_t sequence = header.stateSequence();
   for (;;) {
      TableHeader::StateRead result = header.tryReadState(state);
      if (result == TableHeader::StateRead::whole) {
         break;
      }
      if (result == TableHeader::StateRead::corrupt) {
         fail("has a damaged header: its state's checksum fails; a running writer mends that with its next "
              "polling pass, a restarted one at once");
      }
      if (!patience.wait()) {
         fail(std::string("has a half-written header: its writer ") +
              (patience.isWriterDead() ? "died, and has to be restarted" : "is stuck"));
      }
      sequence = header.stateSequence();
   }
   const std::size_t size = sizeFor_(mapping, state);
   if (size == 0) {
      fail("has a damaged header: the depth of its rings is not known");
   }
   // The checksum vouches for the capacity, not for the file: reading past its end would raise SIGBUS.
   if (size > mapping.size()) {
      fail("was cut short: it has " + std::to_string(mapping.size()) + " bytes, expected " +
           std::to_string(size) + " for " + std::to_string(state.capacity) + " records");
   }
   mapping_ = std::move(mapping);
   state_ = state;
   stateSequence_ = sequence;
   problem_.clear();
}

} // namespace Silo

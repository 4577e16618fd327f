// Waits until the SDK has initialized every counter table of a chip.
#pragma once

#include "kiln/Accessors.h"
#include "kiln/Timer.h"

namespace ZelCounter {

class ChipAccess;

// One a chip, owned by its counters object. Checks at once, then every initDelay until no table is left; a
// table that is initialized is never asked about again. Activity thread.
class ZelCountersSm : public Kiln::Entity {
 public:
   // The parent owns this and is held by a raw pointer; it has a resource-info service.
   ZelCountersSm(ChipAccess* parent, Kiln::Ptr<const Kiln::Clock> clock);

   ChipAccess* parent() const { return parent_; }
   // When the next check is due; never once all tables are initialized.
   double initClockTimeMin() const { return initClock_.timeMin(); }

   // True when the table is initialized: the parent's flags then say so, and whether it is read per pipe.
   // False also when the SDK can't tell.
   bool counterInitialized(U32 tableId);

   // The agent shuts down: in a simulation, completions of every chip are ignored from here on.
   void doCleanup();

   // Seconds between two checks.
   KILN_SECONDS(initDelay, 2.0)
   // Set once the first check was made.
   KILN_ATTRIBUTE(bool, initialized, false)

 private:
   void handleInitialized();
   void handleInitClock();
   void checkTables();

   ChipAccess* parent_; // owns this
   Kiln::Timer<ZelCountersSm> initClock_;
};

} // namespace ZelCounter

// Who gave the command that runs, and when. What a command changes can be told by it afterwards.
#pragma once

#include "kiln/Types.h"

#include <optional>
#include <sys/types.h>

namespace Agent {

struct CommandOrigin {
   Kiln::String who; // "root", "uid 1000", "the console"; "the agent" while no command runs
   double time = 0;  // on the system's clock, when the command began

   bool operator==(const CommandOrigin&) const = default;

   // Of the command that this thread runs.
   static CommandOrigin current();
   // By number: to look a name up may take long, and the agent waits for nobody.
   static Kiln::String textOf(uid_t user);
};

// While it lives, a command of `who` runs; it may have come in the middle of another one, which then goes on.
class CommandOriginScope {
 public:
   explicit CommandOriginScope(Kiln::String who);
   CommandOriginScope(const CommandOriginScope&) = delete;
   CommandOriginScope& operator=(const CommandOriginScope&) = delete;
   ~CommandOriginScope();

 private:
   std::optional<CommandOrigin> outer_;
};

} // namespace Agent

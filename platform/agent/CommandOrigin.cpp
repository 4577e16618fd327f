// The origin belongs to the thread that runs the command: what another one does while the command gives way is not the
// command's.
#include "agent/CommandOrigin.h"

#include "kiln/Time.h"

#include <utility>

namespace Agent {

namespace {

std::optional<CommandOrigin>& running() {
   thread_local std::optional<CommandOrigin> origin;
   return origin;
}

} // namespace

CommandOrigin CommandOrigin::current() {
   return running() ? *running() : CommandOrigin{"the agent", Kiln::System::currentTime()};
}

Kiln::String CommandOrigin::textOf(uid_t user) {
   return user == 0 ? "root" : "uid " + std::to_string(user);
}

CommandOriginScope::CommandOriginScope(Kiln::String who)
     : outer_(std::exchange(running(), CommandOrigin{std::move(who), Kiln::System::currentTime()})) {}

CommandOriginScope::~CommandOriginScope() {
   running() = std::move(outer_);
}

} // namespace Agent

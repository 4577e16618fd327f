// One origin for each thread that runs commands, one at a time. What other threads do while a command gives way is not the
// command's.
#include "agent/CommandOrigin.h"

#include "kiln/Time.h"

#include <optional>
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

CommandOriginScope::CommandOriginScope(Kiln::String who) {
   running() = CommandOrigin{std::move(who), Kiln::System::currentTime()};
}

CommandOriginScope::~CommandOriginScope() {
   running().reset();
}

} // namespace Agent

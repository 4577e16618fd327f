// The directory of command callbacks.
#include "agent/AgentCommand.h"

#include "kiln/Accessors.h"

namespace Agent {

void AgentCommandRequestDirSm::agentCommandCallbackIs(Kiln::Ptr<AgentCommandCallback> callback) {
   if (!callback) {
      Kiln::throwNullParameter("agentCommandCallback", "Agent::AgentCommandRequestDirSm");
   }
   const Kiln::String type = callback->commandType();
   callbacks_.set(type, std::move(callback));
}

Kiln::Ptr<AgentCommandCallback>
AgentCommandRequestDirSm::agentCommandCallback(const Kiln::String& commandType) const {
   return Kiln::valueOrDefault(callbacks_, commandType);
}

} // namespace Agent

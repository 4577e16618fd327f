// Shows the process's logs to whoever asks on the command channel.
#pragma once

#include "agent/AgentCommand.h"
#include "kiln/OperatorLog.h"

namespace Agent {

// "[json]": the operator log or the ring log, oldest first, each line with the date and time of day. What is shown stays
// in the log.
class LogCommand : public AgentCommandCallback {
 public:
   enum class Log : U8 { operatorLog, ringLog };

   LogCommand(const Kiln::String& commandType, Log log)
        : AgentCommandCallback(Kiln::Name(commandType), commandType), log_(log) {}

   CommandResult command(const std::vector<Kiln::String>& words, int fd) override;
   bool changes(const std::vector<Kiln::String>& /*words*/) const override { return false; }
   std::vector<Kiln::String> completions(const std::vector<Kiln::String>& words) const override;

 private:
   Log log_;
};

// "ZEL_COUNTERS_OVERFLOW_ERROR (error): ...", as every log of the agent has it.
Kiln::String logText(const Kiln::OperatorLog::Entry& entry);

} // namespace Agent

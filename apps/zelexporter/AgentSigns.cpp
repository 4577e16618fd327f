// Asks the tables for their writer, and the agent's record for its age.
#include "apps/zelexporter/AgentSigns.h"

#include "kiln/Choices.h"
#include "kiln/Time.h"
#include "silo/TableReader.h"
#include "vex/PublishedChip.h"
#include "vex/PublishedRecords.h"

#include <exception>

namespace ZelExporter {

namespace {

constexpr double staleAfter = 3; // polling intervals

// Empty as well where the agent keeps no such record.
Kiln::String silence(const Silo::Store& store) {
   using Health = Silo::Interface::AgentHealth;
   try {
      Silo::TableReader<Health> reader(store, Silo::Interface::TableName::agentHealth);
      Silo::Sample<Health> sample;
      if (reader.read(Silo::Key(Silo::Interface::agentKey), sample) != Silo::ReadResult::ok) {
         return "";
      }
      const auto age = reader.age(sample.info, Kiln::System::monotonicTime(), Silo::ClockDomain::monotonic());
      if (age && *age <= staleAfter * reader.state().pollingInterval) {
         return "";
      }
      return "the agent lives, but has published nothing " +
             (age ? "for " + Kiln::durationText(*age) : Kiln::String("since the machine's start"));
   } catch (const std::exception&) {
      return "";
   }
}

} // namespace

Kiln::String agentProblem(const Silo::Store& store) {
   try {
      Silo::TableReader<Silo::Interface::IntfCounters> reader(store,
                                                              Silo::Interface::TableName::intfCounters);
      return reader.isWriterAlive() ? silence(store) : "no agent is running: what is published is its last";
   } catch (const std::exception& error) {
      return Kiln::String("nothing is published: ") + error.what();
   }
}

} // namespace ZelExporter

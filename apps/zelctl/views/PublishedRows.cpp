// Judges what was read.
#include "apps/zelctl/views/PublishedRows.h"

#include "kiln/Choices.h"
#include "vex/PublishedRecords.h"

#include <map>

namespace ZelCtl {

using Kiln::String;
using Vex::NamedCounter;

const char* text(Activity activity) {
   switch (activity) {
   case Activity::up:
      return "up";
   case Activity::idle:
      return "idle";
   case Activity::read:
      return "ok";
   case Activity::unrated:
      return "no rate";
   case Activity::stale:
      return "stale";
   case Activity::neverRead:
      return "never read";
   case Activity::agentGone:
      break;
   }
   return "agent gone";
}

const NamedCounter* PublishedRow::counter(std::string_view counterName) const {
   const std::vector<NamedCounter>& shown = span ? span->counters : text.counters;
   const auto found = std::ranges::find(shown, counterName, &NamedCounter::name);
   return found == shown.end() ? nullptr : &*found;
}

std::optional<double> PublishedRow::ageOf(std::string_view prefix) const {
   const auto found = std::ranges::find_if(
        text.counters, [&](const NamedCounter& one) { return one.name.starts_with(prefix); });
   const bool isOfPlace = !prefix.empty() && found != text.counters.end() && found->readTime != 0;
   return age && isOfPlace ? std::optional(*age + std::max(sampleTime - found->readTime, 0.0)) : age;
}

Activity PublishedTable::activity(const PublishedRow& row, std::string_view prefix) const {
   bool isRead = false;
   bool isRated = false;
   bool isMoving = false;
   for (const NamedCounter& one : row.text.counters) {
      const bool isOfPlace = one.name.starts_with(prefix);
      isRead = isRead || (isOfPlace && one.isRead);
      if (isOfPlace && (one.name.ends_with("-pkts") || one.name.ends_with("packets"))) {
         isRated = isRated || one.rate;
         isMoving = isMoving || one.rate.value_or(0) > 0;
      }
   }
   const bool isStale = row.isStale || row.ageOf(prefix).value_or(0) > staleAfter * pollingInterval;
   return !isRead             ? Activity::neverRead
          : !isWriterAlive    ? Activity::agentGone
          : isStale           ? Activity::stale
          : !row.text.isRated ? Activity::read
          : isMoving          ? Activity::up
          : isRated           ? Activity::idle
                              : Activity::unrated;
}

std::vector<String> PublishedTable::notes() const {
   std::vector<String> all = spanNotes;
   if (const String activity = activityNote(); !activity.empty()) {
      all.push_back(activity);
   }
   if (!owner.empty()) {
      all.push_back("Published by the agent of " + owner + ".");
   }
   return all;
}

String PublishedTable::activityNote() const {
   if (!isWriterAlive) {
      return "No agent is running, so nothing newer is published.";
   }
   if (rows.empty()) {
      return "An agent is running and publishes nothing here.";
   }
   if (std::ranges::any_of(rows, [](const PublishedRow& row) { return !row.isStale; })) {
      return "";
   }
   std::optional<double> youngest;
   for (const PublishedRow& row : rows) {
      if (row.age) {
         youngest = std::min(*row.age, youngest.value_or(*row.age));
      }
   }
   return "An agent is running, but has published nothing here" +
          (youngest ? " for " + Kiln::durationText(*youngest) : "") + ".";
}

void addQueueDrops(PublishedRow* port, const PublishedRow& queues) {
   if (port->result != Silo::ReadResult::ok || queues.result != Silo::ReadResult::ok) {
      return;
   }
   NamedCounter drops{.name = "out-queue-drops", .rate = 0, .isError = true, .isRead = false};
   for (const NamedCounter& one : queues.text.counters) {
      if (one.name.ends_with(".drops") && one.isRead) {
         drops.isRead = true;
         drops.total += one.total;
         drops.rate = one.rate && drops.rate ? std::optional(*drops.rate + *one.rate) : std::nullopt;
      }
   }
   if (!drops.isRead) {
      drops.rate.reset();
   }
   port->queuesAge = queues.age;
   if (port->sampleTime != Silo::unknownSampleTime && queues.sampleTime != Silo::unknownSampleTime) {
      port->queuesBehind = port->sampleTime - queues.sampleTime;
   }
   port->text.counters.push_back(std::move(drops));
}

PublishedTable readPorts(const Silo::Store& store, const char* tableName) {
   PublishedTable ports = readPublished<Silo::Interface::IntfCounters>(store, tableName);
   std::map<String, PublishedRow> queues;
   try {
      namespace TableName = Silo::Interface::TableName;
      const char* const name = std::string_view(tableName) == TableName::intfClearCounters
                                    ? TableName::intfClearQueueCounters
                                    : TableName::intfQueueCounters;
      for (PublishedRow& row : readPublished<Silo::Interface::IntfQueueCounters>(store, name).rows) {
         queues.emplace(row.name, std::move(row));
      }
   } catch (const std::exception&) { // no agent has published queues: they are shown as unknown
   }
   for (PublishedRow& port : ports.rows) {
      if (const auto found = queues.find(port.name); found != queues.end()) {
         addQueueDrops(&port, found->second);
      }
   }
   return ports;
}

} // namespace ZelCtl

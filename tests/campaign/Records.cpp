// The flight recorder: the history has what the model had at those moments, and the events tell what it did.
#include "tests/campaign/Campaign.h"
#include "tests/campaign/Readers.h"

#include <algorithm>

namespace Campaign {

namespace {

using Silo::Interface::Event;

// Interfaces that come or go within a second are one event.
constexpr double crowdTime = 1.0;

bool isCrowdKind(const std::string& kind) {
   return kind == "port-came" || kind == "port-went";
}

bool tells(const Event& event, const Happening& happening) {
   const std::string kind = event.kind.data();
   const bool isKind = kind == happening.kind || (kind == "reset" && happening.kind == "upset");
   const bool isCrowd = isCrowdKind(kind) && event.others > 0;
   const bool isThere = event.where.data() == happening.where || (isCrowd && event.others > 1) ||
                        (isCrowd && event.what.data() == happening.where);
   // Of an agent that was killed, its last sign of life: without chips, long ago.
   constexpr double longestSilence = 1000;
   const double end = std::max(event.lastTime, event.time + (isCrowd ? crowdTime : 0));
   return isKind && isThere &&
          (kind == "agent-killed" ? happening.time - event.time <= longestSilence
                                  : event.time <= happening.time && happening.time <= end);
}

} // namespace

void Run::checkHistory(bool isCalm) {
   Silo::HistoryReader& reader = readers_->history;
   if (!isMended_) {
      return;
   }
   std::vector<Silo::HistorySample> samples;
   for (const auto& [intf, port] : model_.ports) {
      expect(reader.read(intf, samples), "the history is not to be read: " + reader.problem());
      double before = -never;
      for (const Silo::HistorySample& sample : samples) {
         expect(sample.time > before, "the history of " + intf + " is not in order");
         before = sample.time;
         const auto known =
              std::ranges::find(port.history, sample.time, &std::pair<double, std::array<U64, 9>>::first);
         if (port.history.empty() || sample.time < port.history.front().first) {
            continue; // from before what the model remembers
         }
         expect(known != port.history.end(),
                "the history of " + intf + " has a sample of a moment without one");
         expect(known == port.history.end() || std::ranges::equal(sample.values, known->second),
                "the history of " + intf + " differs from its totals");
      }
      constexpr double patience = 10;
      expect(!isCalm || !port.isPublished || port.sampleTime < now() - patience || before >= now() - patience,
             "the history of " + intf + " is old");
   }
}

void Run::checkEvents() {
   if (!isMended_) {
      return;
   }
   std::vector<Silo::Entry<Event>> entries;
   expect(readers_->events.snapshot(entries), "the events are not to be read: " + readers_->events.problem());
   const std::vector<Happening> happenings = std::exchange(model_.happenings, {});
   const U64 known = newestEvent_;
   for (const auto& entry : entries) {
      newestEvent_ = std::max(newestEvent_, entry.sample.record.number);
   }
   if (now() - damagedAt_ < mendingTime || wasDamaged_) { // some of it may be lost
      wasDamaged_ = now() - damagedAt_ < mendingTime;
      return;
   }
   for (const auto& entry : entries) {
      const Event& event = entry.sample.record;
      const std::string kind = event.kind.data();
      const bool isTold = isCrowdKind(kind) || kind == "chip-came" || kind == "chip-went" || kind == "wrap" ||
                          kind == "port-moved";
      const bool isKnown = std::ranges::any_of(happenings, [&](const Happening& happening) {
         return happening.kind == kind && happening.where == event.where.data() &&
                happening.time == event.time;
      });
      expect(!isTold || event.number <= known || isKnown,
             "there is an event " + kind + " of " + event.where.data() + ", which never was");
   }
   for (const Happening& happening : happenings) {
      const bool isTold = std::ranges::any_of(
           entries, [&](const auto& entry) { return tells(entry.sample.record, happening); });
      expect(isTold, "no event tells of " + happening.kind + " of '" + happening.where + "' at " +
                          std::to_string(happening.time));
   }
}

} // namespace Campaign

// Judges a chip by its readings.
#include "counters/cli/HealthView.h"

#include "counters/ZelCounters.h"
#include "counters/publish/ChipHealth.h"
#include "kiln/ActivityLock.h"
#include "kiln/Choices.h"
#include "kiln/Time.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

namespace ZelCounter {

namespace {

using Cell = TableView::Cell;
using Holds = TableView::Holds;
using Kind = ReadingKey::Kind;
using Silo::Interface::ChipHealth;

Cell ageCell(const std::optional<double>& seconds) {
   return seconds ? Cell(static_cast<U64>(*seconds * 1000)) : Cell(TableView::Unread());
}

// Tells a reading from the others of its chip.
Kiln::String nameOf(ZelCounters& chip, const ReadingKey& key) {
   const Kiln::String pipe = " pipe " + std::to_string(key.pipe);
   switch (key.kind) {
   case Kind::mac: {
      const auto& ports = chip.ports();
      const auto port = std::ranges::find(ports, key.id, &ChipAccess::Port::devicePort);
      return port != ports.end() ? port->intf.text() : "port " + std::to_string(key.id);
   }
   case Kind::tableSync: {
      const auto* const info = chip.zlResourceInfoIntf()->zlTableCounter(key.id);
      return info->name + (key.pipe == ZelId::ZelPipeId::allPipes() ? "" : pipe);
   }
   case Kind::queues:
      return "queues" + pipe;
   default:
      return "traffic manager" + pipe;
   }
}

Kiln::String milliseconds(double seconds) {
   char text[32];
   std::snprintf(text, sizeof text, "%.3f ms", seconds * 1000);
   return text;
}

std::vector<Kiln::String> processNotes() {
   std::vector<Kiln::String> notes;
   if (const std::size_t dead = deadObjects(); dead != 0) {
      notes.push_back(Kiln::counted(dead, "dead object") + " kept for completions that are due or lost");
   }
   if (!Kiln::System::timeSource()->isSimulated()) { // there, holds take no time that counts
      const auto lines = activityLockLines();
      notes.insert(notes.end(), lines.begin(), lines.end());
   }
   return notes;
}

Kiln::String bound(double seconds) {
   const auto microseconds = static_cast<U64>(std::llround(seconds * 1e6));
   return microseconds < 1000 ? std::to_string(microseconds) + " us"
                              : std::to_string(microseconds / 1000) + " ms";
}

void addEvent(TableView* table, const Kiln::String& chipName, const Kiln::String& what,
              const std::optional<MacAccounting::Event>& event) {
   if (event) {
      table->notes.push_back(chipName + ", last " + what + ": " + event->intf.text() + " " + event->counter +
                             " from " + std::to_string(event->before) + " to " +
                             std::to_string(event->after) + ", " +
                             Kiln::durationText(Kiln::System::currentTime() - event->time) + " ago");
   }
}

} // namespace

std::vector<Kiln::String> activityLockLines() {
   const Kiln::ActivityLockAnchor::Statistics& lock = Kiln::ActivityLockAnchor::statistics();
   const auto& bounds = Kiln::ActivityLockAnchor::holdBounds;
   Kiln::String holds = "Activity lock: holds";
   for (std::size_t i = 0; i < bounds.size(); ++i) {
      holds += (i == 0 ? " " : ", ") + std::to_string(lock.holds[i]) + " up to " + bound(bounds[i]);
   }
   return {"Activity lock: longest hold " + milliseconds(lock.longestHold) + " by " + lock.longestHolder +
                ", longest wait " + milliseconds(lock.longestWait) +
                (*lock.longestWaiter != 0 ? Kiln::String(" by ") + lock.longestWaiter : ""),
           holds + ", " + std::to_string(lock.holds.back()) + " longer"};
}

TableView healthView(ZelCounters& chip, const ManagerAccess& mgr, bool isFirst) {
   TableView table{"Health of chip " + chip.chipName(),
                   {{"Chip", Holds::text},
                    {"Verdict", Holds::text},
                    {"Up", Holds::age},
                    {"MAC read", Holds::age},
                    {"Tables", Holds::age},
                    {"Queues", Holds::age},
                    {"Traffic manager", Holds::age},
                    {"Outstanding", Holds::counter},
                    {"Refused", Holds::counter},
                    {"Unanswered", Holds::counter},
                    {"Late", Holds::counter},
                    {"Wraps", Holds::counter},
                    {"Upsets", Holds::counter},
                    {"VLANs pending", Holds::counter}}};
   const Readings& readings = chip.readings();
   readings.forEachPolled([&](const ReadingKey& key, const Reading&) {
      table.readings.push_back({nameOf(chip, key), readings.state(key)});
   });
   const ChipHealth health = healthOf(chip, mgr);
   const auto count = [&](ChipHealth::Place place) { return U64{health.readings[place][0]}; };
   const auto age = [&](Kind kind) {
      return readings.isAsked(kind) ? ageCell(readings.age(kind)) : Cell(TableView::Unsupported());
   };
   table.rows.push_back({chip.chipName(), ChipHealth::verdictNames[static_cast<std::size_t>(health.verdict)],
                         ageCell(chip.age()), age(Kind::mac), age(Kind::tableSync), age(Kind::queues),
                         age(Kind::trafficManager), health.outstanding, count(ChipHealth::refused),
                         count(ChipHealth::unanswered), count(ChipHealth::late), count(ChipHealth::wraps),
                         count(ChipHealth::upsets), health.pendingVlans});
   addEvent(&table, chip.chipName(), "wrap", chip.macAccounting().lastWrap());
   addEvent(&table, chip.chipName(), "upset", chip.macAccounting().lastUpset());
   if (isFirst) {
      const std::vector<Kiln::String> notes = processNotes();
      table.notes.insert(table.notes.end(), notes.begin(), notes.end());
   }
   return table;
}

} // namespace ZelCounter

// Keeps the chip's readings, and judges them by their age and by what the last attempt said.
#include "counters/chip/Readings.h"

#include "counters/chip/SdkStatus.h"
#include "kiln/Time.h"

#include <algorithm>
#include <cmath>

namespace ZelCounter {

namespace {

constexpr double stalePeriods = 3.0;

double now() {
   return Kiln::System::currentTime();
}

} // namespace

const char* ReadingKey::textOf(Kind kind) {
   switch (kind) {
   case Kind::mac:
      return "MAC counters";
   case Kind::queues:
      return "queues";
   case Kind::trafficManager:
      return "the traffic manager";
   case Kind::pipeline:
   case Kind::mauDeparser:
      return "the pipeline";
   default:
      return "tables";
   }
}

bool ReadingKey::isPolled() const {
   return kind == Kind::mac || kind == Kind::tableSync || kind == Kind::queues ||
          kind == Kind::trafficManager;
}

Reading& Readings::at(const ReadingKey& key) {
   if (key.kind == ReadingKey::Kind::mac) {
      if (key.id >= mac_.size()) {
         mac_.resize(std::size_t{key.id} + 1);
      }
      return mac_[key.id];
   }
   if (Reading* const known = others_.find(key)) {
      return *known;
   }
   others_.set(key, {});
   return *others_.find(key);
}

const Reading& Readings::reading(const ReadingKey& key) const {
   static const Reading none;
   if (key.kind == ReadingKey::Kind::mac) {
      return key.id < mac_.size() ? mac_[key.id] : none;
   }
   const Reading* const known = others_.find(key);
   return known != nullptr ? *known : none;
}

void Readings::requested(const ReadingKey& key) {
   Reading& reading = at(key);
   unanswered_ += reading.isOutstanding ? 1 : 0;
   reading.isOutstanding = true;
   reading.since = std::min(reading.since, now());
}

void Readings::completed(const ReadingKey& key) {
   Reading& reading = at(key);
   reading.readTime = now();
   reading.since = std::min(reading.since, reading.readTime);
   reading.status = 0;
   reading.isOutstanding = false;
   reading.isStopped = false;
}

void Readings::refused(const ReadingKey& key, int status) {
   at(key).isOutstanding = false;
   skipped(key, status);
   ++refused_;
}

void Readings::skipped(const ReadingKey& key, int status) {
   Reading& reading = at(key);
   reading.since = std::min(reading.since, now());
   reading.status = status;
}

void Readings::attempted(const ReadingKey& key, int status) {
   if (status == 0) {
      completed(key);
   } else {
      refused(key, status);
   }
}

void Readings::stopped(const ReadingKey& key) {
   at(key).isStopped = true;
}

void Readings::periodIs(ReadingKey::Kind kind, double seconds) {
   periods_[static_cast<std::size_t>(kind)] = seconds;
}

bool Readings::isOld(ReadingKey::Kind kind, const Reading& reading) const {
   const bool wasRead = reading.readTime != Kiln::never;
   const double age = now() - (wasRead ? reading.readTime : reading.since);
   return ReadingKey{kind}.isPolled() && age > patience(kind);
}

double Readings::patience(ReadingKey::Kind kind) const {
   return stalePeriods * periods_[static_cast<std::size_t>(kind)];
}

ReadingState Readings::state(ReadingKey::Kind kind, const Reading& reading) const {
   ReadingState state;
   if (reading.readTime != Kiln::never) {
      state.age = now() - reading.readTime;
   }
   if (reading.since == Kiln::never) {
      return state; // nobody has had the time to try
   }
   if (reading.status != 0) {
      state.trouble = sdkStatusText(reading.status);
   } else if (isOld(kind, reading)) {
      state.trouble = reading.isOutstanding ? "no answer" : "not asked for";
   }
   if (reading.isStopped) {
      state.trouble = "polling stopped: " + state.trouble;
   }
   return state;
}

ReadingState ReadingState::with(const ReadingState& other) const {
   ReadingState both = *this;
   if (!age || !other.age) {
      both.age = std::nullopt;
   } else {
      both.age = std::max(*age, *other.age);
   }
   if (trouble.empty()) {
      both.trouble = other.trouble;
   }
   return both;
}

std::optional<double> Readings::age(ReadingKey::Kind kind) const {
   std::optional<double> oldest = 0;
   forEachPolled([&](const ReadingKey& key, const Reading& reading) {
      if (key.kind != kind || !oldest) {
         return;
      }
      if (reading.readTime == Kiln::never) {
         oldest = std::nullopt;
      } else {
         oldest = std::max(*oldest, now() - reading.readTime);
      }
   });
   return oldest;
}

bool Readings::isAsked(ReadingKey::Kind kind) const {
   bool isAsked = false;
   forEachPolled([&](const ReadingKey& key, const Reading&) { isAsked |= key.kind == kind; });
   return isAsked;
}

// By their age only: one refusal is no silence. A poller that was stopped says nothing of the chip.
std::array<std::optional<bool>, ReadingKey::kinds> Readings::answeredKinds() const {
   std::array<std::optional<bool>, ReadingKey::kinds> answered;
   forEachPolled([&](const ReadingKey& key, const Reading& reading) {
      if (!reading.isStopped) {
         std::optional<bool>& isAnswered = answered[static_cast<std::size_t>(key.kind)];
         isAnswered = isAnswered.value_or(false) || !isOld(key.kind, reading);
      }
   });
   return answered;
}

std::vector<ReadingKey::Kind> Readings::silentKinds() const {
   std::vector<ReadingKey::Kind> silent;
   const auto answered = answeredKinds();
   for (std::size_t kind = 0; kind < answered.size(); ++kind) {
      if (answered[kind] == false) {
         silent.push_back(static_cast<ReadingKey::Kind>(kind));
      }
   }
   return silent;
}

bool Readings::isSilent() const {
   bool isSilent = false;
   const auto answered = answeredKinds();
   for (std::size_t kind = 0; kind < answered.size(); ++kind) {
      if (answered[kind] == true && static_cast<ReadingKey::Kind>(kind) != ReadingKey::Kind::trafficManager) {
         return false;
      }
      isSilent |= answered[kind] == false;
   }
   return isSilent;
}

} // namespace ZelCounter

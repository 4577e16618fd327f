// Moves the frames that the generators have ready into the chips, ten times a second.
#include "softchip/Traffic.h"

#include "kiln/ActivityLock.h"
#include "kiln/Time.h"
#include "softchip/CaptureReader.h"

#include <algorithm>
#include <cmath>
#include <stdexcept>

namespace SoftChip {

Traffic::Traffic(Fleet& fleet, Kiln::Ptr<const Kiln::Clock> clock, U64 seed)
     : fleet_(fleet), seed_(seed), clock_(std::move(clock), this, &Traffic::handleClock) {}

void Traffic::onIs(bool on) {
   if (on == on_) {
      return;
   }
   if (on) {
      // From now on: nothing arrived while traffic was off.
      deliveredAt_ = Kiln::System::currentTime();
      clock_.timeMinIs(deliveredAt_ + tick);
   } else {
      const auto whole = Kiln::ActivityLockAnchor::lock(); // nested, so that no slice ends
      deliver();                                           // the rest of what was begun
      beginDelivery();
      deliver();
      clock_.timeMinIs(Kiln::never);
   }
   on_ = on;
}

void Traffic::handleClock() {
   if (!nextPlace_) {
      beginDelivery();
   }
   const bool isOver = deliver();
   clock_.timeMinIs(isOver ? std::max(deliveredAt_ + tick, Kiln::System::currentTime())
                           : Kiln::System::currentTime());
}

void Traffic::beginDelivery() {
   const double now = Kiln::System::currentTime();
   // What passed, not a tick: a late clock loses no frames.
   time_ += now - deliveredAt_;
   deliveredAt_ = now;
   nextPlace_ = Place{};
}

// In slices, of ports. Chips and ports may change meanwhile: what comes anew gets its first frames with the next
// delivery, by sourceOf.
bool Traffic::deliver() {
   const Place begin = nextPlace_.value_or(Place{});
   for (Chip* chip : fleet_.chips()) {
      if (!nextPlace_ || chip->deviceId() < begin.device) {
         continue;
      }
      Source& source = sourceOf(*chip);
      const std::chrono::nanoseconds elapsed(std::llround((time_ - source.since) * 1e9));
      TrafficBatch batch;
      for (std::size_t i = chip->deviceId() == begin.device ? begin.port : 0; i < source.ports.size(); ++i) {
         while (source.generator.next(i, elapsed, batch)) {
            chip->receive(source.ports[i], batch.frame, batch.repeat);
         }
         if (Kiln::ActivityLockAnchor::isSliceOver()) {
            nextPlace_ = Place{chip->deviceId(), i + 1};
            return false;
         }
      }
   }
   nextPlace_.reset();
   return true;
}

// When the ports change, the chip's traffic begins anew: a port's frames depend on how many others there are.
Traffic::Source& Traffic::sourceOf(const Chip& chip) {
   const auto found = sources_.find(chip.deviceId());
   if (found != sources_.end()) {
      if (found->second.chipSerial == chip.serial() && found->second.portsVersion == chip.portsVersion()) {
         return found->second;
      }
      sources_.erase(found);
   }
   const std::vector<U16> ports = chip.ports();
   const U64 seed = SeededRandom(seed_ + chip.deviceId()).next();
   return sources_
        .emplace(chip.deviceId(), Source{chip.serial(), chip.portsVersion(), time_, ports,
                                         TrafficGenerator(seed, ports.size())})
        .first->second;
}

U64 Traffic::replay(Chip& chip, U16 devicePort, const Kiln::String& path) {
   if (!chip.hasPort(devicePort)) {
      throw std::invalid_argument(chip.name() + " has no port at " + std::to_string(devicePort));
   }
   // Read to its end first, so that a corrupt file delivers nothing.
   U64 frames = 0;
   for (CaptureReader whole(path); whole.next();) {
      ++frames;
   }
   CaptureReader reader(path);
   while (const auto frame = reader.next()) {
      chip.receive(devicePort, parseFrame(frame->bytes, frame->originalLength));
   }
   return frames;
}

} // namespace SoftChip

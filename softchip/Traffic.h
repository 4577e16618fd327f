// Feeds frames to the chips of a fleet: synthetic ones as time passes, or those of a capture at once.
#pragma once

#include "kiln/Timer.h"
#include "softchip/Fleet.h"
#include "softchip/TrafficGenerator.h"

#include <map>
#include <optional>

namespace SoftChip {

// Synthetic traffic on every port of every chip, driven by a clock, real or simulated; off at first. The same seed,
// chips and times give the same frames. Activity thread; ends before its fleet.
class Traffic {
 public:
   Traffic(Fleet& fleet, Kiln::Ptr<const Kiln::Clock> clock, U64 seed);

   bool on() const { return on_; }
   // Traffic time stands still while traffic is off.
   void onIs(bool on);

   // All frames of a capture file arrive at a port, at once. Returns how many. Throws CaptureError if the file cannot
   // be read to its end, and std::invalid_argument if there is no such port; no frame has arrived then.
   static U64 replay(Chip& chip, U16 devicePort, const Kiln::String& path);

 private:
   // The traffic of one chip, since its ports last changed.
   struct Source {
      U64 chipSerial;
      U64 portsVersion;
      double since; // traffic time
      std::vector<U16> ports;
      TrafficGenerator generator;
   };

   // Where a delivery goes on: chips come in the order of their device ids.
   struct Place {
      U8 device = 0;
      std::size_t port = 0; // of the source's
   };

   void handleClock();
   void beginDelivery();
   // False if its slice of the lock's time was over first.
   bool deliver();
   Source& sourceOf(const Chip& chip);

   // Seconds. Well below TrafficManager::burstSeconds, or ports would drop ordinary traffic.
   static constexpr double tick = 0.1;

   Fleet& fleet_;
   U64 seed_;
   bool on_ = false;
   double time_ = 0.0;              // traffic time
   double deliveredAt_ = 0;         // clock time
   std::optional<Place> nextPlace_; // of a delivery that has begun
   std::map<U8, Source> sources_;
   Kiln::Timer<Traffic> clock_;
};

} // namespace SoftChip

// Identifies this boot of the machine, and this process.
#include "silo/ClockDomain.h"

#include <ctime>
#include <fstream>
#include <limits>
#include <string>
#include <unistd.h>

namespace Silo {

namespace {

std::array<std::uint64_t, 2> bootId() {
   std::ifstream file("/proc/sys/kernel/random/boot_id");
   std::string text;
   std::array<std::uint64_t, 2> id{};
   std::size_t digits = 0;
   if (!(file >> text)) {
      // All zeros, which is comparable with nothing, not even with itself.
      return id;
   }
   for (char c : text) {
      auto digit = std::string_view("0123456789abcdef").find(c);
      if (digit != std::string_view::npos && digits < 32) {
         auto& half = id[digits++ / 16];
         half = half << 4 | digit;
      }
   }
   return id;
}

// When this process started, in clock ticks since boot. Process ids are reused; together with this one they are not.
std::uint64_t processStart() {
   std::ifstream file("/proc/self/stat");
   file.ignore(std::numeric_limits<std::streamsize>::max(), ')'); // the command name may hold blanks
   // The start time is the 22nd field of the line, the name the 2nd.
   constexpr int fieldsBeforeStart = 19;
   std::string skipped;
   for (int i = 0; i < fieldsBeforeStart; ++i) {
      file >> skipped;
   }
   std::uint64_t ticks = 0;
   file >> ticks;
   return ticks;
}

} // namespace

ClockDomain ClockDomain::monotonic() {
   return {false, bootId()};
}

ClockDomain ClockDomain::simulatedTime() {
   return {true, {static_cast<std::uint64_t>(getpid()), processStart()}};
}

bool ClockDomain::isComparableWith(const ClockDomain& other) const {
   return simulated == other.simulated && id == other.id && id != std::array<std::uint64_t, 2>{};
}

// Kiln reads this clock too. Silo does without Kiln, so that any program can read the tables.
double monotonicNow() {
   timespec now{};
   clock_gettime(CLOCK_MONOTONIC, &now);
   return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
}

} // namespace Silo

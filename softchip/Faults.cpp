// Keeps a queue of statuses and a cost per entry point.
#include "softchip/Faults.h"

#include "kiln/ActivityManager.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <stdexcept>
#include <thread>

namespace SoftChip {

namespace {

void spend(double seconds) {
   if (Kiln::System::timeSource()->isSimulated()) {
      static_cast<Kiln::SimulatedTime&>(*Kiln::System::timeSource()).charge(seconds);
      return;
   }
   // In slices: nothing wakes a thread that sleeps within the SDK, and an agent that was told to end must not be kept.
   constexpr double slice = 0.05; // seconds
   const auto manager = Kiln::ActivityManager::instance();
   const double end = Kiln::System::monotonicTime() + seconds;
   for (double left = seconds; left > 0 && !manager->isStopping();
        left = end - Kiln::System::monotonicTime()) {
      std::this_thread::sleep_for(std::chrono::duration<double>(std::min(left, slice)));
   }
}

} // namespace

Faults::Plan& Faults::planOf(std::string_view entryPoint) {
   const auto* const found = std::find(entryPointNames.begin(), entryPointNames.end(), entryPoint);
   if (found == entryPointNames.end()) {
      Kiln::String message = "unknown SDK entry point '" + Kiln::String(entryPoint) + "': expected one of";
      for (const char* name : entryPointNames) {
         message += Kiln::String(" ") + name;
      }
      throw std::invalid_argument(message);
   }
   return plans_[static_cast<std::size_t>(found - entryPointNames.begin())];
}

void Faults::failNext(std::string_view entryPoint, int status, U32 times) {
   Plan& plan = planOf(entryPoint);
   if (times == 0) {
      return;
   }
   const std::lock_guard lock(mutex_);
   plan.runs.push_back({status, times});
   armed_.store(true, std::memory_order_release);
}

void Faults::costIs(std::string_view entryPoint, double seconds) {
   Plan& plan = planOf(entryPoint);
   if (!std::isfinite(seconds) || seconds < 0) {
      throw std::invalid_argument("the cost of a call is a number of seconds from 0 upward");
   }
   const std::lock_guard lock(mutex_);
   plan.cost = seconds;
   armed_.store(true, std::memory_order_release);
}

void Faults::clear() {
   const std::lock_guard lock(mutex_);
   plans_ = {};
   armed_.store(false, std::memory_order_release);
}

int Faults::take(EntryPoint entryPoint) {
   std::unique_lock lock(mutex_);
   Plan& plan = plans_[static_cast<std::size_t>(entryPoint)];
   int status = 0;
   if (!plan.runs.empty()) {
      Run& run = plan.runs.front();
      status = run.status;
      if (--run.times == 0) {
         plan.runs.pop_front();
      }
   }
   const double cost = plan.cost;
   lock.unlock(); // other calls do not wait for this one
   // A call that fails takes its time too.
   if (cost > 0) {
      spend(cost);
   }
   return status;
}

} // namespace SoftChip

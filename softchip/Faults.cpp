// Keeps a queue of statuses and a cost per entry point.
#include "softchip/Faults.h"

#include "kiln/Time.h"

#include <algorithm>
#include <cmath>
#include <stdexcept>

namespace SoftChip {

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
   const std::lock_guard lock(mutex_);
   Plan& plan = plans_[static_cast<std::size_t>(entryPoint)];
   // Charged before the status is known: a call that fails takes its time too.
   if (plan.cost > 0 && Kiln::System::timeSource()->isSimulated()) {
      static_cast<Kiln::SimulatedTime&>(*Kiln::System::timeSource()).charge(plan.cost);
   }
   if (plan.runs.empty()) {
      return 0;
   }
   Run& run = plan.runs.front();
   const int status = run.status;
   if (--run.times == 0) {
      plan.runs.pop_front();
   }
   return status;
}

} // namespace SoftChip

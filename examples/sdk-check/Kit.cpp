// Watches requests, and prints the report.
#include "Kit.h"

#include "kiln/ActivityLock.h"
#include "sdk/bf_port.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdlib>
#include <iomanip>
#include <iostream>
#include <iterator>
#include <sstream>

namespace SdkCheck {

namespace {

constexpr const char* verdictTexts[] = {"pass", "FAIL", "not supported", "not tried"};

Kit* current = nullptr;                     // whom the SDK's callbacks tell; under the activity lock
std::atomic<unsigned> enteredElsewhere = 0; // callbacks on other threads than that of the checks
const std::thread::id threadOfChecks = std::this_thread::get_id();

void enter() {
   if (std::this_thread::get_id() != threadOfChecks) {
      ++enteredElsewhere;
   }
}

} // namespace

std::string text(Completing how) {
   return how == Completing::inlined    ? "inline"
          : how == Completing::deferred ? "deferred"
                                        : "on another thread";
}

std::string text(double seconds) {
   std::ostringstream out;
   out << seconds << " s";
   return out.str();
}

unsigned Kit::entered() {
   return enteredElsewhere.load();
}

std::string statusText(int status) {
   return "status " + std::to_string(status);
}

Report::Report(double patience) : patience_(patience), watchdog_([this] { watch(); }) {}

Report::~Report() {
   {
      const std::lock_guard lock(mutex_);
      ended_ = true;
   }
   ends_.notify_all();
   watchdog_.join();
}

void Report::line(Verdict verdict, const std::string& name, const std::string& rest) {
   ++counts_[verdict];
   std::cout << std::left << std::setw(15) << verdictTexts[verdict] << name << ": " << rest << std::endl;
   const std::lock_guard lock(mutex_);
   last_ = name;
   ++signs_;
}

void Report::check(bool isGood, const std::string& name, const std::string& expected,
                   const std::string& came) {
   line(isGood ? pass : failed, name, "expected " + expected + ", came " + came);
}

void Report::checkStatus(int status, const std::string& name, const std::string& expected) {
   constexpr int sdkNotSupported = 17;
   if (status == sdkNotSupported) {
      notSupported(name, statusText(status));
   } else {
      check(status == 0, name, expected, statusText(status));
   }
}

void Report::notSupported(const std::string& name, const std::string& came) {
   line(unsupported, name, came);
}

void Report::notTried(const std::string& name, const std::string& why) {
   line(untried, name, why);
}

int Report::finish() {
   for (unsigned verdict = pass; verdict < verdicts; ++verdict) {
      std::cout << (verdict == 0 ? "" : ", ") << counts_[verdict] << ' ' << verdictTexts[verdict];
   }
   std::cout << std::endl;
   return counts_[failed] == 0 ? 0 : 1;
}

void Report::alive() {
   const std::lock_guard lock(mutex_);
   ++signs_;
}

// Without the activity lock, which the call that hangs may hold.
void Report::watch() {
   std::unique_lock lock(mutex_);
   for (unsigned seen = signs_; !ended_; seen = signs_) {
      const auto isAlive = [&] { return ended_ || signs_ != seen; };
      if (!ends_.wait_for(lock, std::chrono::duration<double>(patience_), isAlive)) {
         std::cout << std::left << std::setw(15) << verdictTexts[failed] << "after '" << last_
                   << "': expected the SDK to return, came nothing for " << text(patience_) << ": stopped"
                   << std::endl;
         std::_Exit(1);
      }
   }
}

Kit::Kit(const Options& wanted, Hooks& madeHooks)
     : options(wanted), hooks(madeHooks), report(1 + 2 * (wanted.timeout + wanted.settle)) {
   current = this;
}

Kit::~Kit() {
   const auto lock = Kiln::ActivityLockAnchor::lock();
   current = nullptr;
}

Request& Kit::add(bf_dev_id_t device) {
   const auto lock = Kiln::ActivityLockAnchor::lock();
   auto request = std::make_unique<Request>();
   request->device = device;
   request->asker = std::this_thread::get_id();
   Request& added = *request;
   requests_.emplace(&added, std::move(request));
   return added;
}

Request& Kit::ask(Request& request, const std::function<int()>& start) {
   const auto lock = Kiln::ActivityLockAnchor::lock();
   request.status = start();
   request.isReturned = true;
   return request;
}

Request& Kit::readPort(bf_dev_id_t device, bf_dev_port_t port, std::function<void()> inCallback) {
   Request& request = add(device);
   request.port = port;
   request.inCallback = std::move(inCallback);
   return ask(request, [&] { return bf_port_mac_stats_hw_async_get(device, port, macCallback, &request); });
}

void Kit::macCallback(bf_dev_id_t device, bf_dev_port_t port, bf_rmon_counter_array_t* values, void* cookie) {
   enter();
   const auto lock = Kiln::ActivityLockAnchor::lock();
   if (current != nullptr) {
      current->completed(cookie, device, port, values);
   }
}

void Kit::syncCallback(bf_dev_id_t device, void* cookie) {
   enter();
   const auto lock = Kiln::ActivityLockAnchor::lock();
   if (current != nullptr) {
      current->completed(cookie, device, std::nullopt, nullptr);
   }
}

void Kit::completed(void* cookie, bf_dev_id_t device, std::optional<bf_dev_port_t> port,
                    const bf_rmon_counter_array_t* values) {
   const auto found = requests_.find(cookie);
   if (found == requests_.end()) {
      ++strays_;
      return;
   }
   Request& request = *found->second;
   ++request.completions;
   if (device != request.device) {
      request.wrong = "device " + std::to_string(device);
   } else if (port != request.port) {
      request.wrong = port ? "port " + std::to_string(*port) : "no port";
   } else if (port && values == nullptr) {
      request.wrong = "no values";
   }
   if (request.completions > 1) {
      return;
   }
   request.how = std::this_thread::get_id() != request.asker ? Completing::thread
                 : request.isReturned                        ? Completing::deferred
                                                             : Completing::inlined;
   if (values != nullptr) {
      std::copy(std::begin(*values), std::end(*values), std::begin(request.values));
   }
   if (request.inCallback) {
      request.inCallback();
   }
}

bool Kit::waitFor(double seconds, const std::function<bool()>& isDone) {
   using Clock = std::chrono::steady_clock;
   const auto end = Clock::now() + std::chrono::duration<double>(seconds);
   for (;;) {
      report.alive();
      {
         const auto lock = Kiln::ActivityLockAnchor::lock();
         if (isDone()) {
            return true;
         }
      }
      if (Clock::now() >= end) {
         return false;
      }
      if (hooks.work) {
         hooks.work();
      }
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
   }
}

void Kit::await(const std::vector<Request*>& requests) {
   waitUntil([&] {
      return std::all_of(requests.begin(), requests.end(), [](const Request* request) {
         return request->status != 0 || request->completions > 0;
      });
   });
   waitFor(options.settle, [] { return false; });
}

bool Kit::isGood(const std::vector<Request*>& requests) {
   const auto lock = Kiln::ActivityLockAnchor::lock();
   return std::all_of(requests.begin(), requests.end(), [](const Request* request) {
      return request->status == 0 && request->completions == 1 && request->wrong.empty();
   });
}

std::string Kit::outcome(const std::vector<Request*>& requests) const {
   const auto lock = Kiln::ActivityLockAnchor::lock();
   const auto of =
        requests.size() > 1 ? " (of one of " + std::to_string(requests.size()) + ")" : std::string();
   for (const Request* request : requests) {
      if (request->completions > 1) {
         return std::to_string(request->completions) + " completions" + of;
      }
      if (request->status != 0) {
         return statusText(request->status) + (request->completions != 0 ? " and a completion" : "") + of;
      }
      if (request->completions == 0) {
         return "none within " + text(options.timeout) + of;
      }
      if (!request->wrong.empty()) {
         return "a completion with " + request->wrong + of;
      }
   }
   return "one " + (requests.size() > 1 ? std::string("each") : text(requests.front()->how));
}

unsigned Kit::doubled() const {
   const auto lock = Kiln::ActivityLockAnchor::lock();
   return static_cast<unsigned>(std::count_if(
        requests_.begin(), requests_.end(), [](const auto& entry) { return entry.second->completions > 1; }));
}

} // namespace SdkCheck

// What the checks share: requests whose completions are watched, and the report.
#pragma once

#include "Hooks.h"
#include "sdk/bf_rmon.h"

#include <condition_variable>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

namespace SdkCheck {

struct Options {
   Target target;
   double timeout = 5.0; // seconds after which a completion is lost, and a call hangs
   double settle = 0.1;  // seconds after a completion in which a second one is looked for
   bool help = false;
};

// Prints a line a check. A call of the SDK that does not return ends the program, with a line that says after which
// check.
class Report {
 public:
   explicit Report(double patience);
   Report(const Report&) = delete;
   Report& operator=(const Report&) = delete;
   ~Report();

   void check(bool isGood, const std::string& name, const std::string& expected, const std::string& came);
   // As check, but 17 from the SDK is no fault: the library does without.
   void checkStatus(int status, const std::string& name, const std::string& expected);
   void notSupported(const std::string& name, const std::string& came);
   void notTried(const std::string& name, const std::string& why);
   // The last line. Returns the exit status.
   int finish();

   // The checks are still going on.
   void alive();

 private:
   enum Verdict { pass, failed, unsupported, untried, verdicts };
   void line(Verdict verdict, const std::string& name, const std::string& rest);
   void watch();

   double patience_;
   unsigned counts_[verdicts] = {};
   std::mutex mutex_; // guards what follows
   std::string last_ = "start";
   unsigned signs_ = 0; // of life
   bool ended_ = false;
   std::condition_variable ends_;
   std::thread watchdog_;
};

// A request and what came of it. Its address is the cookie, and stays valid to the end, so that a late completion is
// seen. Under the activity lock.
struct Request {
   int status = 0; // the SDK's answer
   bf_dev_id_t device = 0;
   std::optional<bf_dev_port_t> port; // of a read
   unsigned completions = 0;
   std::string wrong; // with the first completion that had something wrong
   Completing how = Completing::deferred;
   bf_rmon_counter_array_t values = {};
   std::function<void()> inCallback;

   std::thread::id asker;
   bool isReturned = false;
};

std::string text(Completing how);
std::string statusText(int status);
// As short as it goes.
std::string text(double seconds);

class Kit {
 public:
   Kit(const Options& wanted, Hooks& madeHooks);
   Kit(const Kit&) = delete;
   Kit& operator=(const Kit&) = delete;
   ~Kit();

   const Options options;
   const Target& target = options.target;
   Hooks& hooks;
   Report report;

   // Requests as the library makes them: under the activity lock.
   Request& readPort(bf_dev_id_t device, bf_dev_port_t port, std::function<void()> inCallback = {});
   // `start(callback, cookie)` returns the SDK's status.
   template <class Start>
   Request& sync(bf_dev_id_t device, Start start) {
      Request& request = add(device);
      return ask(request, [&] { return start(syncCallback, &request); });
   }

   // Waits for the completions of all, and `settle` longer for more.
   void await(const std::vector<Request*>& requests);
   // Waits until `isDone` says so; false if that takes longer than `timeout`.
   template <class IsDone>
   bool waitUntil(IsDone isDone) {
      return waitFor(options.timeout, isDone);
   }

   // Whether each was accepted and completed once, as it should, and a text that says so or what was wrong first.
   static bool isGood(const std::vector<Request*>& requests);
   std::string outcome(const std::vector<Request*>& requests) const;

   // Requests that completed more than once, and completions of none.
   unsigned doubled() const;
   unsigned strays() const { return strays_; }
   // Callbacks that came on a thread of the SDK's, counted as they come, before they wait for the lock.
   static unsigned entered();

 private:
   static void macCallback(bf_dev_id_t device, bf_dev_port_t port, bf_rmon_counter_array_t* values,
                           void* cookie);
   static void syncCallback(bf_dev_id_t device, void* cookie);
   void completed(void* cookie, bf_dev_id_t device, std::optional<bf_dev_port_t> port,
                  const bf_rmon_counter_array_t* values);
   Request& add(bf_dev_id_t device);
   Request& ask(Request& request, const std::function<int()>& start);
   bool waitFor(double seconds, const std::function<bool()>& isDone);

   std::map<void*, std::unique_ptr<Request>> requests_;
   unsigned strays_ = 0;
};

// The checks, in their order.
void checkSession(Kit& kit);
void checkPorts(Kit& kit);
void checkPipes(Kit& kit);
void checkTables(Kit& kit);
void checkEntries(Kit& kit);
void checkDevice(Kit& kit);
void checkCompletions(Kit& kit);

} // namespace SdkCheck

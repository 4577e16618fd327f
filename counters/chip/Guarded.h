// Keeps what an update throws from who must not see it.
#pragma once

#include <exception>

namespace ZelCounter {

// Tells the ring log.
void logFailedUpdate(const char* what, const char* why);

// Runs an update that an SDK callback makes, or a poller whose clock has to be armed again. What it throws, such as a
// watcher's exception, costs this update and is logged.
template <class Update>
void guarded(const char* what, Update update) {
   try {
      update();
   } catch (const std::exception& error) {
      logFailedUpdate(what, error.what());
   } catch (...) {
      logFailedUpdate(what, "unknown exception");
   }
}

} // namespace ZelCounter

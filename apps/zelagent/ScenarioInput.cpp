// Waits for the scenario's descriptor, then reads it.
#include "apps/zelagent/ScenarioInput.h"

#include "kiln/ActivityLock.h"
#include "kiln/ActivityManager.h"

#include <cerrno>
#include <poll.h>
#include <system_error>
#include <unistd.h>

namespace ZelAgent {

namespace {

struct Arrival : Kiln::ActivityManager::Descriptor {
   using Descriptor::Descriptor;
   void onReady(bool /*readable*/, bool /*writable*/) override { hasCome = true; }
   bool hasCome = false;
};

void runUntilReadable(int fd) {
   const auto manager = Kiln::ActivityManager::instance();
   Arrival arrival(manager, fd);
   {
      const auto lock = Kiln::ActivityLockAnchor::lock();
      arrival.wantsIs(true, false);
   }
   manager->runUntil([&] { return arrival.hasCome; });
}

} // namespace

ScenarioInput::int_type ScenarioInput::underflow() {
   const bool isSimulated = Kiln::System::timeSource()->isSimulated();
   for (;;) {
      pollfd watched[] = {{fd_, POLLIN, 0}, {endFd_, POLLIN, 0}};
      // A file never has to be waited for: between its statements no clock fires, whatever the time.
      if (poll(watched, std::size(watched), isSimulated ? -1 : 0) == 0) {
         runUntilReadable(fd_);
         continue;
      }
      // The end comes first, even if there is more to read. After an interrupted poll both are 0, and it is repeated.
      if (watched[1].revents != 0) {
         return traits_type::eof();
      }
      const ssize_t got = watched[0].revents != 0 ? read(fd_, bytes_.data(), bytes_.size()) : 0;
      if (got > 0) {
         setg(bytes_.data(), bytes_.data(), bytes_.data() + got);
         return traits_type::to_int_type(bytes_.front());
      }
      if (got == 0 && watched[0].revents != 0) {
         return traits_type::eof();
      }
      // Whoever shares the terminal may have made it non-blocking, hence EAGAIN.
      if (got < 0 && errno != EINTR && errno != EAGAIN) {
         throw std::system_error(errno, std::generic_category(), "the scenario");
      }
   }
}

} // namespace ZelAgent

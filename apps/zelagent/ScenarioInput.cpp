// Waits for both descriptors, then reads the scenario's.
#include "apps/zelagent/ScenarioInput.h"

#include <cerrno>
#include <poll.h>
#include <system_error>
#include <unistd.h>

namespace ZelAgent {

ScenarioInput::int_type ScenarioInput::underflow() {
   for (;;) {
      pollfd watched[] = {{fd_, POLLIN, 0}, {endFd_, POLLIN, 0}};
      poll(watched, std::size(watched), -1);
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

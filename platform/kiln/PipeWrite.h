// Writing to a pipe that may be closed.
#pragma once

#include <string_view>
#include <sys/types.h>

namespace Kiln {

// Like write(2), but a closed pipe gives EPIPE only, and no SIGPIPE.
ssize_t writeWithoutSignal(int fd, std::string_view text);

} // namespace Kiln

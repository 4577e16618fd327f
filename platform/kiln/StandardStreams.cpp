// Opens closed standard streams on the null device.
#include "kiln/StandardStreams.h"

#include <fcntl.h>
#include <initializer_list>
#include <unistd.h>

namespace Kiln {

void openStandardStreams() {
   for (const int fd : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
      if (fcntl(fd, F_GETFD) < 0) {
         open("/dev/null", O_RDWR);
      }
   }
}

} // namespace Kiln

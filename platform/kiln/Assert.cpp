// Prints a failed assertion and stops the process.
#include "kiln/Assert.h"

#include "kiln/LogOutput.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace Kiln {

void assertionFailed(const char* expression, const char* file, const char* function, int line,
                     const char* message) noexcept {
   const char* slash = std::strrchr(file, '/');
   const char* name = slash != nullptr ? slash + 1 : file;
   const char* dot = std::strrchr(name, '.');
   const int length = static_cast<int>(dot != nullptr ? dot - name : static_cast<long>(std::strlen(name)));
   char text[1024];
   std::snprintf(text, sizeof text, "assertion \"%s\" failed in %.*s, %s(), line %d%s%s\n", expression,
                 length, name, function, line, message != nullptr ? ": " : "",
                 message != nullptr ? message : "");
   LogOutput::standardError().write(text); // not waited for: the process has to stop
   std::abort();
}

} // namespace Kiln

// Gathers text and writes it, whatever the descriptor does.
#include "kiln/TextOutput.h"

#include <cerrno>
#include <charconv>
#include <csignal>
#include <cstdarg>
#include <cstdio>
#include <poll.h>
#include <unistd.h>

namespace Kiln {

TextOutput::TextOutput(int fd, bool echo) : fd_(fd), echo_(echo) {}

TextOutput::~TextOutput() {
   flush();
}

void TextOutput::write(std::string_view text) {
   if (!ok()) {
      return;
   }
   buffer_.append(text);
   if (buffer_.size() >= pieceSize) {
      flush();
   }
}

void TextOutput::print(const char* format, ...) {
   char line[256];
   va_list arguments;
   va_start(arguments, format);
   va_list again;
   va_copy(again, arguments);
   const int length = std::vsnprintf(line, sizeof line, format, arguments);
   va_end(arguments);
   if (length >= 0 && static_cast<std::size_t>(length) < sizeof line) {
      write({line, static_cast<std::size_t>(length)});
   } else if (length >= 0) {
      String longer(static_cast<std::size_t>(length) + 1, '\0');
      std::vsnprintf(longer.data(), longer.size(), format, again);
      longer.pop_back();
      write(longer);
   }
   va_end(again);
}

template <class Integer>
void TextOutput::appendNumber(Integer value, unsigned width) {
   char digits[24];
   const char* end = std::to_chars(digits, digits + sizeof digits, value).ptr;
   const auto length = static_cast<std::size_t>(end - digits);
   if (ok() && length < width) {
      buffer_.append(width - length, ' ');
   }
   write({digits, length});
}

void TextOutput::number(U64 value, unsigned width) {
   appendNumber(value, width);
}

void TextOutput::number(S64 value, unsigned width) {
   appendNumber(value, width);
}

namespace {

// Like write(2), but a closed pipe gives EPIPE only. The library must not change the process's signal handling, so this
// thread blocks SIGPIPE for the write, and removes the one that the write raised; one that was pending before stays.
ssize_t writeWithoutSignal(int fd, std::string_view text) {
   sigset_t pipeSignal;
   sigset_t before;
   sigset_t pending;
   sigemptyset(&pipeSignal);
   sigaddset(&pipeSignal, SIGPIPE);
   sigpending(&pending);
   pthread_sigmask(SIG_BLOCK, &pipeSignal, &before);
   const ssize_t written = ::write(fd, text.data(), text.size());
   const int error = errno;
   if (written < 0 && error == EPIPE && sigismember(&pending, SIGPIPE) == 0) {
      const timespec atOnce{};
      sigtimedwait(&pipeSignal, nullptr, &atOnce);
   }
   pthread_sigmask(SIG_SETMASK, &before, nullptr);
   errno = error;
   return written;
}

} // namespace

void TextOutput::flush() {
   std::string_view left = buffer_;
   if (echo_) {
      std::fwrite(left.data(), 1, left.size(), stdout);
   }
   while (ok() && !left.empty()) {
      const ssize_t written = writeWithoutSignal(fd_, left);
      if (written > 0) {
         left.remove_prefix(static_cast<std::size_t>(written));
      } else if (written < 0 && errno == EAGAIN) {
         pollfd wait{fd_, POLLOUT, 0};
         ::poll(&wait, 1, -1);
      } else if (written == 0) {
         // Neither progress nor an error: it would be tried for ever.
         error_ = EIO;
      } else if (errno != EINTR) {
         error_ = errno;
      }
   }
   buffer_.clear();
}

} // namespace Kiln

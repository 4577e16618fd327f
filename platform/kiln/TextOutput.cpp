// Gathers text and writes it, whatever the descriptor does.
#include "kiln/TextOutput.h"

#include "kiln/LogOutput.h"
#include "kiln/PipeWrite.h"

#include <cerrno>
#include <charconv>
#include <climits>
#include <cstdarg>
#include <cstdio>
#include <poll.h>

namespace Kiln {

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

// Returns false if the wait was given up.
bool TextOutput::awaitRoom() const {
   pollfd watched[] = {{fd_, POLLOUT, 0}, {endFd_, POLLIN, 0}};
   while (poll(watched, std::size(watched), -1) < 0 && errno == EINTR) {
   }
   // What there is room for is written even then: a reader that is there gets all.
   return watched[0].revents != 0;
}

void TextOutput::flush() {
   std::string_view left = buffer_;
   if (echo_) {
      LogOutput::standardOutput().write(left);
   }
   while (ok() && !left.empty()) {
      if (endFd_ >= 0 && !awaitRoom()) {
         error_ = ECANCELED;
         break;
      }
      // A pipe that has room at all has it for this much, so that the write does not wait.
      const ssize_t written = writeWithoutSignal(fd_, endFd_ >= 0 ? left.substr(0, PIPE_BUF) : left);
      if (written > 0) {
         left.remove_prefix(static_cast<std::size_t>(written));
      } else if (written < 0 && errno == EAGAIN) {
         awaitRoom();
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

// Buffered text to a descriptor.
#include "kiln/TextOutput.h"

#include <cerrno>
#include <charconv>
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
   if (!ok_) {
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

namespace {

template <class Integer>
void appendNumber(String& buffer, Integer value, unsigned width) {
   char digits[24];
   const char* end = std::to_chars(digits, digits + sizeof digits, value).ptr;
   const auto length = static_cast<std::size_t>(end - digits);
   if (length < width) {
      buffer.append(width - length, ' ');
   }
   buffer.append(digits, length);
}

} // namespace

void TextOutput::number(U64 value, unsigned width) {
   if (ok_) {
      appendNumber(buffer_, value, width);
   }
}

void TextOutput::number(S64 value, unsigned width) {
   if (ok_) {
      appendNumber(buffer_, value, width);
   }
}

void TextOutput::flush() {
   std::string_view left = buffer_;
   if (echo_) {
      std::fwrite(left.data(), 1, left.size(), stdout);
   }
   while (ok_ && !left.empty()) {
      const ssize_t written = ::write(fd_, left.data(), left.size());
      if (written >= 0) {
         left.remove_prefix(static_cast<std::size_t>(written));
      } else if (errno == EAGAIN) {
         pollfd wait{fd_, POLLOUT, 0};
         ::poll(&wait, 1, -1);
      } else if (errno != EINTR) {
         ok_ = false;
      }
   }
   buffer_.clear();
}

} // namespace Kiln

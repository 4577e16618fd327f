// Writes a text from its begin into the memory that it has.
#pragma once

#include "kiln/Types.h"

#include <cstring>
#include <string_view>

namespace ZelMetrics {

// The text's length is right after finish() only. Until then it is what was written last time, so that nothing is filled
// with zeros just to be written over.
class Output {
 public:
   // `expected` bytes are reserved at once: a text that grew by doubling would need thrice its memory.
   Output(Kiln::String* text, std::size_t expected) : text_(text) {
      if (text->capacity() < expected) {
         *text = Kiln::String();
         text->reserve(expected);
      }
   }
   Output(const Output&) = delete;
   Output& operator=(const Output&) = delete;

   // Where the next bytes go: there is room for so many.
   char* room(std::size_t bytes) {
      if (text_->size() - size_ < bytes) {
         text_->resize(size_ + bytes + more);
      }
      return text_->data() + size_;
   }
   void endIs(const char* end) { size_ = static_cast<std::size_t>(end - text_->data()); }
   void add(std::string_view text) {
      std::memcpy(room(text.size()), text.data(), text.size());
      size_ += text.size();
   }
   std::size_t size() const { return size_; }
   // Takes back what was written after that size.
   void sizeIs(std::size_t size) { size_ = size; }
   void finish() { text_->resize(size_); }

 private:
   static constexpr std::size_t more = 4096; // bytes that are asked for beyond what is needed

   Kiln::String* text_;
   std::size_t size_ = 0;
};

} // namespace ZelMetrics

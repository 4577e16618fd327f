// Writes a text from its begin into memory that is used again.
#pragma once

#include "kiln/Types.h"

#include <cstring>
#include <functional>
#include <string_view>

namespace ZelMetrics {

// A short text that is written again and again. Copied in blocks of a fixed size, which takes a third of the time of a
// call that looks at the length; so there has to be room for a block more.
class Piece {
 public:
   static constexpr std::size_t block = 32;

   Piece() { textIs(""); }
   Piece(std::string_view text) { textIs(text); }
   void textIs(std::string_view text) {
      size_ = text.size();
      bytes_.assign(text);
      bytes_.resize((size_ + block) / block * block);
   }
   std::string_view text() const { return {bytes_.data(), size_}; }
   std::size_t size() const { return size_; }
   bool isEmpty() const { return size_ == 0; }
   char* copyTo(char* to) const {
      const char* const from = bytes_.data();
      for (std::size_t i = 0; i < size_; i += block) {
         std::memcpy(to + i, from + i, block);
      }
      return to + size_;
   }

 private:
   Kiln::String bytes_; // whole blocks
   std::size_t size_ = 0;
};

// Takes a part of a text, which is gone afterwards.
using TakePiece = std::function<void(std::string_view)>;

// The text's length is right after finish() only. Until then it is what was written last time, so that nothing is filled
// with zeros just to be written over.
class Output {
 public:
   // Of a whole text. `expected` bytes are reserved at once: a text that grew by doubling would need thrice its memory.
   Output(Kiln::String* text, std::size_t expected) : text_(text) {
      if (text->capacity() < expected) {
         *text = Kiln::String();
         text->reserve(expected);
      }
   }
   // Of a text that is handed over in pieces, each in the memory of `piece`.
   Output(Kiln::String* piece, TakePiece take) : text_(piece), take_(std::move(take)) {}
   Output(const Output&) = delete;
   Output& operator=(const Output&) = delete;

   // Where the next bytes go: there is room for so many, and for a block more.
   char* room(std::size_t bytes) {
      if (text_->size() - size_ < bytes + Piece::block) {
         text_->resize(size_ + bytes + more);
      }
      return text_->data() + size_;
   }
   void endIs(const char* end) {
      size_ = static_cast<std::size_t>(end - text_->data());
      if (size_ >= pieceSize && take_) {
         handOver();
      }
   }
   void add(std::string_view text) {
      char* const to = room(text.size());
      std::memcpy(to, text.data(), text.size());
      endIs(to + text.size());
   }
   void finish() {
      text_->resize(size_);
      if (take_) {
         handOver();
      }
   }

 private:
   static constexpr std::size_t more = 4096; // bytes that are asked for beyond what is needed
   static constexpr std::size_t pieceSize = 65536;

   void handOver() {
      take_({text_->data(), size_});
      size_ = 0;
   }

   Kiln::String* text_;
   TakePiece take_; // none if the text is whole
   std::size_t size_ = 0;
};

} // namespace ZelMetrics

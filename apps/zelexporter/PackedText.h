// A text that is kept packed, by gzip: of metrics, that takes a tenth of the memory or less.
#pragma once

#include "kiln/Types.h"

#include <memory>
#include <string_view>

namespace ZelExporter {

// Never changes, so that any number of readers share it.
class PackedText {
 public:
   explicit PackedText(std::string_view text);

   const Kiln::String& packed() const { return packed_; }
   std::size_t unpackedSize() const { return unpackedSize_; }

 private:
   Kiln::String packed_;
   std::size_t unpackedSize_;
};

// Gives the text back piece by piece.
class Unpacker {
 public:
   explicit Unpacker(std::shared_ptr<const PackedText> text);
   ~Unpacker();
   Unpacker(Unpacker&& other) noexcept;
   Unpacker& operator=(Unpacker&& other) noexcept;

   // Replaces the piece by the next one; false at the end.
   bool next(Kiln::String* piece);

 private:
   struct Stream;
   std::shared_ptr<const PackedText> text_;
   std::unique_ptr<Stream> stream_;
};

} // namespace ZelExporter

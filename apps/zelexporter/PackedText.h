// A text that is kept packed, by gzip: of metrics, that takes a tenth of the memory or less.
#pragma once

#include "kiln/Types.h"

#include <memory>
#include <string_view>

namespace ZelExporter {

struct PackedText {
   Kiln::String packed;
   std::size_t unpackedSize = 0;
};

// Packs a text that comes in pieces, so that all of it is never in memory.
class Packer {
 public:
   Packer();
   ~Packer();
   Packer(const Packer&) = delete;
   Packer& operator=(const Packer&) = delete;

   void add(std::string_view piece);
   // Once, at the end. Any number of readers may share it.
   std::shared_ptr<const PackedText> text();

 private:
   struct Stream;
   void pack(int flush);

   std::unique_ptr<Stream> stream_;
   std::shared_ptr<PackedText> made_;
};

// A text that is there as a whole.
std::shared_ptr<const PackedText> packed(std::string_view text);

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

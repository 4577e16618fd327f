// Packs and unpacks with zlib.
#include "apps/zelexporter/PackedText.h"

#include <new>
#include <zlib.h>

namespace ZelExporter {

namespace {

constexpr int gzipWindow = MAX_WBITS + 16; // zlib's way to ask for gzip's head and foot
constexpr int defaultMemory = 8;
constexpr std::size_t pieceSize = 65536;

Bytef* bytes(const Kiln::String& text, std::size_t at) {
   return reinterpret_cast<Bytef*>(const_cast<char*>(text.data() + at)); // zlib reads it only
}

} // namespace

struct Packer::Stream {
   z_stream state{};

   // The fastest level: numbers and names that repeat pack well at any.
   Stream() {
      if (deflateInit2(&state, Z_BEST_SPEED, Z_DEFLATED, gzipWindow, defaultMemory, Z_DEFAULT_STRATEGY) !=
          Z_OK) {
         throw std::bad_alloc();
      }
   }
   ~Stream() { deflateEnd(&state); }
   Stream(const Stream&) = delete;
   Stream& operator=(const Stream&) = delete;
};

Packer::Packer() : stream_(std::make_unique<Stream>()), made_(std::make_shared<PackedText>()) {}
Packer::~Packer() = default;

void Packer::add(std::string_view piece) {
   made_->unpackedSize += piece.size();
   stream_->state.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(piece.data()));
   stream_->state.avail_in = static_cast<uInt>(piece.size());
   pack(Z_NO_FLUSH);
}

// As long as there is something to write.
void Packer::pack(int flush) {
   do {
      const std::size_t had = made_->packed.size();
      made_->packed.resize(had + pieceSize);
      stream_->state.next_out = bytes(made_->packed, had);
      stream_->state.avail_out = pieceSize;
      deflate(&stream_->state, flush);
      made_->packed.resize(made_->packed.size() - stream_->state.avail_out);
   } while (stream_->state.avail_out == 0);
}

std::shared_ptr<const PackedText> Packer::text() {
   pack(Z_FINISH);
   made_->packed.shrink_to_fit();
   return std::move(made_);
}

std::shared_ptr<const PackedText> packed(std::string_view text) {
   Packer packer;
   packer.add(text);
   return packer.text();
}

struct Unpacker::Stream {
   z_stream state{};

   explicit Stream(const Kiln::String& packed) {
      state.next_in = bytes(packed, 0);
      state.avail_in = static_cast<uInt>(packed.size());
      if (inflateInit2(&state, gzipWindow) != Z_OK) {
         throw std::bad_alloc();
      }
   }
   ~Stream() { inflateEnd(&state); }
   Stream(const Stream&) = delete;
   Stream& operator=(const Stream&) = delete;
};

Unpacker::Unpacker(std::shared_ptr<const PackedText> text)
     : text_(std::move(text)), stream_(std::make_unique<Stream>(text_->packed)) {}
Unpacker::~Unpacker() = default;
Unpacker::Unpacker(Unpacker&& other) noexcept = default;
Unpacker& Unpacker::operator=(Unpacker&& other) noexcept = default;

bool Unpacker::next(Kiln::String* piece) {
   piece->resize(pieceSize);
   stream_->state.next_out = bytes(*piece, 0);
   stream_->state.avail_out = pieceSize;
   inflate(&stream_->state, Z_NO_FLUSH); // of its own making: at the end it gives nothing more
   piece->resize(pieceSize - stream_->state.avail_out);
   return !piece->empty();
}

} // namespace ZelExporter

// Packs and unpacks with zlib.
#include "apps/zelexporter/PackedText.h"

#include <algorithm>
#include <limits>
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

PackedText::PackedText(std::string_view text) : unpackedSize_(text.size()) {
   z_stream stream{};
   // The fastest level: numbers and names that repeat pack well at any.
   if (deflateInit2(&stream, Z_BEST_SPEED, Z_DEFLATED, gzipWindow, defaultMemory, Z_DEFAULT_STRATEGY) !=
       Z_OK) {
      throw std::bad_alloc();
   }
   int status = Z_OK;
   while (status == Z_OK) {
      const std::size_t had = packed_.size();
      packed_.resize(had + pieceSize);
      stream.next_out = bytes(packed_, had);
      stream.avail_out = pieceSize;
      if (stream.avail_in == 0) { // which is shorter than a text may be
         const std::size_t part = std::min<std::size_t>(text.size(), std::numeric_limits<uInt>::max());
         stream.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(text.data()));
         stream.avail_in = static_cast<uInt>(part);
         text.remove_prefix(part);
      }
      status = deflate(&stream, text.empty() ? Z_FINISH : Z_NO_FLUSH);
      packed_.resize(packed_.size() - stream.avail_out);
   }
   deflateEnd(&stream);
   packed_.shrink_to_fit();
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
     : text_(std::move(text)), stream_(std::make_unique<Stream>(text_->packed())) {}
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

// Decodes UTF-8, and makes text harmless.
#include "kiln/Utf8.h"

namespace Kiln {

namespace {

// 0 for a byte that begins no character: 0xc0 and 0xc1 would be overlong, 0xf5 and above are beyond Unicode.
std::size_t lengthByLead(unsigned char lead) {
   return lead < 0x80 ? 1 : lead < 0xc2 ? 0 : lead < 0xe0 ? 2 : lead < 0xf0 ? 3 : lead < 0xf5 ? 4 : 0;
}

bool isContinuation(char byte) {
   return (static_cast<unsigned char>(byte) & 0xc0U) == 0x80;
}

String harmless(std::string_view text, std::string_view allowedControls) {
   String shown;
   shown.reserve(text.size());
   for (std::size_t at = 0; at < text.size();) {
      const CodePoint one = codePointAt(text, at);
      if (one.isValid && (!one.isControl() || allowedControls.find(text[at]) != std::string_view::npos)) {
         shown.append(text, at, one.length);
      } else {
         shown += '?';
      }
      at += one.length;
   }
   return shown;
}

} // namespace

CodePoint codePointAt(std::string_view text, std::size_t at) {
   const auto lead = static_cast<unsigned char>(text[at]);
   const std::size_t length = lengthByLead(lead);
   if (length == 0 || at + length > text.size()) {
      return {};
   }
   char32_t value = length == 1 ? lead : lead & (0x7fU >> length);
   for (std::size_t i = 1; i < length; ++i) {
      if (!isContinuation(text[at + i])) {
         return {};
      }
      value = value << 6U | (static_cast<unsigned char>(text[at + i]) & 0x3fU);
   }
   const bool isOverlong = (length == 3 && value < 0x800) || (length == 4 && value < 0x10000);
   if (isOverlong || (value >= 0xd800 && value < 0xe000) || value > 0x10ffff) {
      return {};
   }
   return {value, length, true};
}

String printable(std::string_view text) {
   return harmless(text, {});
}

String printableText(std::string_view text) {
   return harmless(text, "\n\t");
}

} // namespace Kiln

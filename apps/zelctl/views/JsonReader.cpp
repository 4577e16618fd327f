// A recursive-descent reader.
#include "apps/zelctl/views/JsonReader.h"

#include "apps/zelctl/terminal/Utf8.h"
#include "kiln/Numbers.h"

#include <stdexcept>
#include <unordered_set>

namespace ZelCtl {

namespace {

using Kiln::String;
using Kind = JsonValue::Kind;

class Reader {
 public:
   explicit Reader(std::string_view text) : text_(text) {}

   JsonValue document() {
      JsonValue value = any(0);
      skipBlanks();
      if (at_ != text_.size()) {
         fail("the end");
      }
      return value;
   }

 private:
   [[noreturn]] void fail(const String& expected) const {
      throw std::runtime_error("at byte " + std::to_string(at_ + 1) + ": expected " + expected);
   }

   void skipBlanks() { at_ = std::min(text_.find_first_not_of(" \t\r\n", at_), text_.size()); }

   // Of what follows the blanks; a NUL at the end.
   char next() {
      skipBlanks();
      return at_ < text_.size() ? text_[at_] : '\0';
   }

   bool take(std::string_view expected) {
      if (text_.substr(at_, expected.size()) != expected) {
         return false;
      }
      at_ += expected.size();
      return true;
   }

   JsonValue any(unsigned depth) {
      JsonValue value;
      const char first = next();
      if (first == '{' || first == '[') {
         if (depth == jsonDepth) {
            fail("no more than " + std::to_string(jsonDepth) + " levels");
         }
         ++at_;
         value.kind = first == '{' ? Kind::object : Kind::list;
         elements(&value, depth + 1);
      } else if (first == '"') {
         value.kind = Kind::string;
         value.text = string();
      } else if (first >= '0' && first <= '9') {
         value.kind = Kind::number;
         value.number = number();
      } else if (take("true") || take("false")) {
         value.kind = Kind::boolean;
         value.truth = first == 't';
      } else if (!take("null")) {
         fail("a value");
      }
      return value;
   }

   // Up to the closing bracket; the opening one is taken.
   void elements(JsonValue* value, unsigned depth) {
      const bool isObject = value->kind == Kind::object;
      const char closing = isObject ? '}' : ']';
      std::unordered_set<String> keys;
      for (bool isFirst = true; next() != closing; isFirst = false) {
         if (!isFirst && !take(",")) {
            fail(String("',' or '") + closing + "'");
         }
         if (!isObject) {
            value->items.push_back(any(depth));
            continue;
         }
         if (next() != '"') {
            fail("a key");
         }
         String key = string();
         if (!keys.insert(key).second) {
            fail("each key once, not " + key + " again");
         }
         if (next() != ':') {
            fail("':'");
         }
         ++at_;
         value->members.push_back({std::move(key), any(depth)});
      }
      ++at_;
   }

   U64 number() {
      const std::size_t end = std::min(text_.find_first_not_of("0123456789", at_), text_.size());
      const std::string_view digits = text_.substr(at_, end - at_);
      const auto value = Kiln::parseNumber<U64>(digits);
      const bool goesOn = end < text_.size() && (text_[end] == '.' || (text_[end] | 0x20) == 'e');
      if (!value || goesOn || (digits.size() > 1 && digits[0] == '0')) {
         fail("a whole number of at most 64 bits");
      }
      at_ = end;
      return *value;
   }

   String string() {
      String value;
      ++at_;
      while (!take("\"")) {
         if (at_ == text_.size()) {
            fail("'\"'");
         }
         const CodePoint one = codePointAt(text_, at_);
         if (!one.isValid || one.value < 0x20) {
            fail("text in UTF-8");
         }
         if (one.value == '\\') {
            ++at_;
            escape(&value);
         } else {
            value += text_.substr(at_, one.length);
            at_ += one.length;
         }
      }
      return value;
   }

   void escape(String* value) {
      constexpr std::string_view letters = "\"\\/bfnrt";
      constexpr std::string_view meanings = "\"\\/\b\f\n\r\t";
      const char letter = at_ < text_.size() ? text_[at_] : '\0';
      if (letter == 'u') {
         ++at_;
         addCodePoint(value, escapedCodePoint());
         return;
      }
      const std::size_t found = letter == '\0' ? letters.npos : letters.find(letter);
      if (found == letters.npos) {
         fail("an escape");
      }
      *value += meanings[found];
      ++at_;
   }

   char32_t escapedCodePoint() {
      const char32_t value = fourDigits();
      if (value < 0xd800 || value > 0xdfff) {
         return value;
      }
      if (value > 0xdbff || !take("\\u")) {
         fail("both halves of a surrogate pair");
      }
      const char32_t low = fourDigits();
      if (low < 0xdc00 || low > 0xdfff) {
         fail("both halves of a surrogate pair");
      }
      return 0x10000 + ((value - 0xd800) << 10U) + (low - 0xdc00);
   }

   char32_t fourDigits() {
      constexpr std::size_t digits = 4;
      const std::string_view text = text_.substr(at_, digits);
      const auto value = Kiln::parseNumber<U16>(text, 0, 0xffff, 16);
      if (text.size() != digits || !value) {
         fail("four hexadecimal digits");
      }
      at_ += digits;
      return *value;
   }

   std::string_view text_;
   std::size_t at_ = 0;
};

} // namespace

const JsonValue* JsonValue::member(std::string_view name) const {
   for (const auto& [key, value] : members) {
      if (key == name) {
         return &value;
      }
   }
   return nullptr;
}

JsonValue readJson(std::string_view text) {
   return Reader(text).document();
}

} // namespace ZelCtl

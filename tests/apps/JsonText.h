// Reads JSON strictly, as far as this system writes it: no fractions, no exponents.
#pragma once

#include "kiln/Types.h"

#include <stdexcept>
#include <utility>
#include <vector>

namespace ZelTest {

struct JsonValue {
   char kind = 'n';                                       // one of {["0n
   Kiln::String text;                                     // of a string, or the digits of a number
   std::vector<std::pair<Kiln::String, JsonValue>> items; // without names in a list

   const JsonValue& operator[](const Kiln::String& name) const {
      for (const auto& [known, value] : items) {
         if (known == name) {
            return value;
         }
      }
      throw std::runtime_error("no " + name);
   }
};

class JsonText {
 public:
   // Throws std::runtime_error for anything but one document with a newline at its end.
   static JsonValue parse(const Kiln::String& text) {
      JsonText reader(text);
      JsonValue value = reader.value();
      if (reader.text_.substr(reader.at_) != "\n") {
         reader.fail();
      }
      return value;
   }

 private:
   explicit JsonText(const Kiln::String& text) : text_(text) {}

   [[noreturn]] void fail() const { throw std::runtime_error("no JSON from here: " + text_.substr(at_, 40)); }
   void skipBlanks() { at_ = std::min(text_.find_first_not_of(" \n", at_), text_.size()); }
   bool take(char c) {
      skipBlanks();
      const bool isNext = at_ < text_.size() && text_[at_] == c;
      at_ += isNext ? 1 : 0;
      return isNext;
   }
   void expect(char c) {
      if (!take(c)) {
         fail();
      }
   }

   JsonValue value() {
      if (take('{')) {
         return list('{', '}');
      }
      if (take('[')) {
         return list('[', ']');
      }
      if (take('"')) {
         return {'"', string(), {}};
      }
      if (text_.compare(at_, 4, "null") == 0) {
         at_ += 4;
         return {};
      }
      const std::size_t end = std::min(text_.find_first_not_of("0123456789", at_), text_.size());
      if (end == at_ || (text_[at_] == '0' && end > at_ + 1)) {
         fail();
      }
      return {'0', text_.substr(std::exchange(at_, end), end - at_), {}};
   }

   JsonValue list(char open, char close) {
      JsonValue all{open, "", {}};
      if (take(close)) {
         return all;
      }
      do {
         Kiln::String name;
         if (open == '{') {
            expect('"');
            name = string();
            expect(':');
         }
         all.items.emplace_back(name, value());
      } while (take(','));
      expect(close);
      return all;
   }

   // What is escaped stays so.
   Kiln::String string() {
      const std::size_t begin = at_;
      while (at_ < text_.size() && text_[at_] != '"') {
         if (static_cast<unsigned char>(text_[at_]) < ' ') {
            fail();
         }
         at_ += text_[at_] == '\\' ? 2U : 1U;
      }
      const Kiln::String found = text_.substr(begin, at_ - begin);
      expect('"');
      return found;
   }

   const Kiln::String& text_;
   std::size_t at_ = 0;
};

} // namespace ZelTest

// JSON as the agent writes it, read strictly: what is not exactly that is refused.
#pragma once

#include "kiln/Types.h"

#include <string_view>
#include <vector>

namespace ZelCtl {

struct JsonMember;

// Numbers are whole, not negative, and fit 64 bits; a key comes once in an object; strings are UTF-8.
struct JsonValue {
   enum class Kind : U8 { null, boolean, number, string, list, object };

   Kind kind = Kind::null;
   bool truth = false;
   U64 number = 0;
   Kiln::String text;
   std::vector<JsonValue> items;
   std::vector<JsonMember> members; // in the order of the text

   // The member of an object; null when it has none, or is none.
   const JsonValue* member(std::string_view name) const;
};

struct JsonMember {
   Kiln::String key;
   JsonValue value;
};

constexpr unsigned jsonDepth = 32; // lists and objects within each other

// The one value of the text, blanks around it aside. Throws std::runtime_error with the place and what is
// expected there.
JsonValue readJson(std::string_view text);

} // namespace ZelCtl

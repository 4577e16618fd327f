// JSON as the agent writes it, read strictly: what is not exactly that is refused.
#pragma once

#include <nlohmann/json_fwd.hpp>
#include <string_view>

namespace ZelCtl {

constexpr std::size_t jsonDepth = 32; // lists and objects within each other

// Objects keep their members in the order of the text.
using Json = nlohmann::ordered_json;

// The one value of the text, blanks around it aside. Numbers are whole, not negative, and fit 64 bits; a key
// comes once in an object. Throws std::runtime_error with what the text is instead.
Json readJson(std::string_view text);

} // namespace ZelCtl

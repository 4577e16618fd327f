// Reads JSON as the agent writes it, and refuses everything else.
#pragma once

#include <nlohmann/json_fwd.hpp>
#include <string_view>

namespace ZelCtl {

constexpr std::size_t jsonDepth = 32; // the most lists and objects nested in each other

// Objects keep their members in the order of the text.
using Json = nlohmann::ordered_json;

// Returns the text's one value; blanks may surround it. Numbers must be unsigned 64-bit integers, and the keys of an
// object unique. Throws std::runtime_error, saying what is wrong with the text.
Json readJson(std::string_view text);

} // namespace ZelCtl

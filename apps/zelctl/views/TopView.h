// `top`: which ports and queues are the busiest, drop most and err most.
#pragma once

#include "apps/zelctl/views/ShownTable.h"
#include "silo/Store.h"

namespace ZelCtl {

inline constexpr const char* topCommand = "top";

// top [by COLUMN] [json]: the text that it prints, at most so many columns wide unless that is 0. Without a column, a
// short list for each question; with one, a longer one of ports and, where queues have the column, one of queues. Throws
// std::runtime_error, saying what is wrong and what was expected.
Kiln::String viewTop(const std::vector<Kiln::String>& words, const Silo::Store& store, std::size_t width);

// The same as tables, for a watch, which takes no `json`.
std::vector<ShownTable> showTop(const std::vector<Kiln::String>& words, const Silo::Store& store);

// Whether the words ask for JSON. Throws as viewTop does.
bool isTopJson(const std::vector<Kiln::String>& words);

// The words that may follow these, the first of which is `top`.
std::vector<Kiln::String> topCandidates(const std::vector<Kiln::String>& words);

} // namespace ZelCtl

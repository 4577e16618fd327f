// Where an operation on a chip writes to, so that each is declared once.
#pragma once

#include "counters/chip/ChipAccess.h"
#include "counters/show/TextShow.h"

#include <optional>

namespace ZelCounter {

// A descriptor, which gets text, or an output that the caller has. Made by conversion, for the length of one call:
// chip.showAllMacCounters(fd, true) or chip.showAllMacCounters(out, true).
class ShowTarget {
 public:
   // Does not own the descriptor.
   ShowTarget(U32 fd) : text_(std::in_place, fd, ChipAccess::echo()), out_(*text_) {}
   ShowTarget(ShowOutput& out) : out_(out) {}
   ShowTarget(const ShowTarget&) = delete;
   ShowTarget& operator=(const ShowTarget&) = delete;

   operator ShowOutput&() const { return out_; }

 private:
   std::optional<TextShow> text_;
   ShowOutput& out_;
};

} // namespace ZelCounter

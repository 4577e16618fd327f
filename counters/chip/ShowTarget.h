// Where an operation on a chip writes to. With it, each operation is declared once, for descriptors and outputs alike.
#pragma once

#include "counters/chip/ChipAccess.h"
#include "counters/show/JsonShow.h"
#include "counters/show/TextShow.h"

#include <memory>
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

// The output for a command's whole answer: text, or one document. Does not own the descriptor.
inline std::unique_ptr<ShowOutput> answerTo(U32 fd, bool json) {
   if (json) {
      return std::make_unique<JsonShow>(fd, ChipAccess::echo());
   }
   return std::make_unique<TextShow>(fd, ChipAccess::echo());
}

} // namespace ZelCounter

// Pipes to go through, one after the other: for (const U16 pipe : chip.pipes()).
#pragma once

#include "kiln/Types.h"

namespace ZelCounter {

// From the first pipe to the last, inclusive.
class Pipes {
 public:
   class Iterator {
    public:
      explicit Iterator(U32 pipe) : pipe_(pipe) {}
      U16 operator*() const { return static_cast<U16>(pipe_); }
      Iterator& operator++() {
         ++pipe_;
         return *this;
      }
      bool operator==(const Iterator&) const = default;

    private:
      U32 pipe_; // wider than a pipe's number, so that it can pass the last one
   };

   Pipes(U16 first, U16 last) : first_(first), last_(last) {}

   Iterator begin() const { return Iterator(first_); }
   Iterator end() const { return Iterator(U32{last_} + 1); }

 private:
   U16 first_;
   U16 last_;
};

} // namespace ZelCounter

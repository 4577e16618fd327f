// A walk that an exception does not cut short.
#pragma once

#include <exception>

namespace ZelCounter {

// Does it for every element, also behind one that throws; then the first exception goes on to the caller.
// What is walked must not change meanwhile.
template <class Elements, class Operation>
void forEachThenThrow(const Elements& elements, Operation operation) {
   std::exception_ptr first;
   for (const auto& element : elements) {
      try {
         operation(element);
      } catch (...) {
         if (!first) {
            first = std::current_exception();
         }
      }
   }
   if (first) {
      std::rethrow_exception(first);
   }
}

} // namespace ZelCounter

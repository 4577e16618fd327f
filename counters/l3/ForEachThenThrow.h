// A walk that an exception does not cut short.
#pragma once

#include <exception>

namespace ZelCounter {

// Calls the operation for every element, also after one has thrown; then throws the first exception. The elements must
// not change meanwhile.
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

// Errors as text.
#pragma once

#include <exception>
#include <string>

namespace ZelTest {

// The text of the exception that the function throws; empty if it throws none.
template <class Function>
std::string errorOf(Function function) {
   try {
      function();
      return "";
   } catch (const std::exception& error) {
      return error.what();
   }
}

} // namespace ZelTest

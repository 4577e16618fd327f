// Assertions: always on, for programming errors and for a chip program that does not fit the library. A failed one
// prints the expression, the source file (without its ending) and the function, and stops the process. What the outside
// world may cause is never asserted: it is checked at the edge and answered with an error.
#pragma once

namespace Kiln {

[[noreturn]] void assertionFailed(const char* expression, const char* file, const char* function, int line,
                                  const char* message) noexcept;

} // namespace Kiln

// KILN_ASSERT( expression ) quotes the expression as it is written here.
#define KILN_ASSERT(expression) KILN_ASSERT_TEXT(expression, #expression)

// KILN_ASSERT_TEXT( condition, "text" ) quotes a text instead, for conditions whose text is fixed.
#define KILN_ASSERT_TEXT(condition, text) KILN_ASSERT_MESSAGE(condition, text, nullptr)

// KILN_ASSERT_MESSAGE( condition, "text", "message" ) adds what it means, for whoever reads the line.
#define KILN_ASSERT_MESSAGE(condition, text, message)                                                        \
   ((condition) ? static_cast<void>(0) : ::Kiln::assertionFailed(text, __FILE__, __func__, __LINE__, message))

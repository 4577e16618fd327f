// How much slower this build runs than a plain one.
#pragma once

namespace ZelTest {

// Sanitizers make everything about ten times slower. Tests divide their numbers of rounds by this.
#if defined(__SANITIZE_THREAD__) || defined(__SANITIZE_ADDRESS__)
inline constexpr int slowdown = 10;
#elif defined(__has_feature)
#if __has_feature(thread_sanitizer) || __has_feature(address_sanitizer)
inline constexpr int slowdown = 10;
#else
inline constexpr int slowdown = 1;
#endif
#else
inline constexpr int slowdown = 1;
#endif

} // namespace ZelTest

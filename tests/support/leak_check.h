#pragma once
// Memory that nothing points to any more, for tests; known only in builds with the leak sanitizer.

#if defined(__SANITIZE_ADDRESS__)
#define TESTS_LEAK_CHECK 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define TESTS_LEAK_CHECK 1
#endif
#endif

#ifdef TESTS_LEAK_CHECK
#include <sanitizer/lsan_interface.h>
#endif

namespace tests {

#ifdef TESTS_LEAK_CHECK
inline constexpr bool kFindsLeaks = true;
#else
inline constexpr bool kFindsLeaks = false;
#endif

/// True when there is memory that nothing points to; the sanitizer then prints who allocated it. Never in
/// builds without it.
[[nodiscard]] inline bool memory_has_leaked() {
#ifdef TESTS_LEAK_CHECK
    return __lsan_do_recoverable_leak_check() != 0;
#else
    return false;
#endif
}

}  // namespace tests

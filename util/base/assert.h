// Assertions about this codebase's own invariants: a condition that only a bug
// here can break (an index a loop keeps in range, a case an earlier check has
// ruled out). They are checked in debug builds and stop the process with the
// place that failed; release builds compile them away. Input from the caller,
// however wrong, is never asserted on: it is refused with a status, so a
// malformed body can never reach an assertion.
#ifndef TARN_UTIL_BASE_ASSERT_H
#define TARN_UTIL_BASE_ASSERT_H

#ifndef NDEBUG
#include <cstdio>
#include <cstdlib>

namespace tarn {

[[noreturn]] inline void assertionFailed(const char* condition_, const char* file_, int line_) {
  std::fprintf(stderr, "%s:%d: assertion failed: %s\n", file_, line_, condition_);
  std::abort();
}

}  // namespace tarn

#define TARN_ASSERT(condition_) \
  ((condition_) ? static_cast<void>(0) : ::tarn::assertionFailed(#condition_, __FILE__, __LINE__))
#else
// Not evaluated, but still compiled, so that it cannot rot and a variable kept
// only for it does not warn.
#define TARN_ASSERT(condition_) static_cast<void>(sizeof(!(condition_)))
#endif

#endif

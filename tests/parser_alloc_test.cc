// The parse path allocates nothing while a level has at most 16 omitted
// ranges, and one heap block once it has 17. Counted by replacing the global
// operator new for this test binary (the module's calls bind to it too);
// skipped under sanitizers, which bring their own allocator.
#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <new>

#include "parser_support.h"
#include "wire.h"

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define TARN_TEST_NO_NEW_COUNT 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer) || \
    __has_feature(memory_sanitizer)
#define TARN_TEST_NO_NEW_COUNT 1
#endif
#endif

#ifndef TARN_TEST_NO_NEW_COUNT
namespace {
std::atomic<long> g_newCount{0};
}

void* operator new(std::size_t size_) {
  g_newCount.fetch_add(1, std::memory_order_relaxed);
  if (void* p = std::malloc(size_ ? size_ : 1)) return p;
  throw std::bad_alloc();
}
void operator delete(void* p_) noexcept { std::free(p_); }
void operator delete(void* p_, std::size_t) noexcept { std::free(p_); }
#endif

namespace {

TEST(ParserAlloc, HeapOnlyBeyondSixteenOmittedRanges) {
#ifdef TARN_TEST_NO_NEW_COUNT
  GTEST_SKIP() << "allocation counting is off under sanitizers";
#else
  struct Case {
    int gaps;
    long allocations;
  };
  for (const Case& c : {Case{0, 0}, Case{16, 0}, Case{17, 1}, Case{20, 1}}) {
    SCOPED_TRACE(std::to_string(c.gaps) + " gaps");
    wire::Body body;
    // Wide has 40 fields: sending odd indexes 1, 3, ... leaves a gap before each.
    for (int k = 0; k < c.gaps; ++k) body.varint(static_cast<uint32_t>(2 * k + 2), 1);
    const std::string bytes = body.bytes();
    tarn_host::ValueSet set;
    tarn_input_message input = {};
    input.message_type_context = ptest::type("Wide");
    input.data = bytes.data();
    input.byte_count = bytes.size();
    (void)tarn_test::api();  // loaded before counting
    const long before = g_newCount.load();
    const int status = tarn_test::api().parse_message(&input, set.handle());
    const long after = g_newCount.load();
    EXPECT_EQ(0, status);
    EXPECT_EQ(40u, set.size());  // sent fields plus defaults: every field once
    EXPECT_EQ(c.allocations, after - before);
  }
#endif
}

}  // namespace

// The parse path allocates nothing while a level has at most 16 omitted
// ranges, and one heap block once it has 17; the merge and its room never
// allocate. Counted by replacing the global
// operator new for this test binary (the module's calls bind to it too);
// skipped under sanitizers, which bring their own allocator.
#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <new>

#include "host/merge_bound.h"
#include "module_fixture.h"
#include "random_message.h"
#include "wire.h"

#ifndef TARN_TEST_SANITIZED
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
#ifdef TARN_TEST_SANITIZED
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
    input.message_type_context = tarn_test::context("parser.proto", "tarn.ptest.Wide");
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

TEST(MergeAlloc, MergeAndRoomAllocateNothing) {
#ifdef TARN_TEST_SANITIZED
  GTEST_SKIP() << "allocation counting is off under sanitizers";
#else
  const auto* type = tarn_test::TestSchema::get().type("tarn.test.Rich");
  for (uint64_t seed = 1; seed <= 20; ++seed) {
    SCOPED_TRACE(seed);
    const std::string storedBody = tarn_test::randomBody(type, 500 + 2 * seed);
    const std::string updateBody = tarn_test::randomBody(type, 501 + 2 * seed);
    tarn_host::ValueSet stored, update;
    ASSERT_EQ(TARN_SUCCESS, tarn_test::parse(tarn_test::rich(), storedBody, stored));
    ASSERT_EQ(TARN_SUCCESS, tarn_test::parse(tarn_test::rich(), updateBody, update));
    const uint64_t room = tarn_host::mergeOutputBound(update, stored);
    std::string segment(room, '\0');
    tarn_delta_message_data delta = {};
    delta.output.data = &segment[0];
    delta.update_value_set = update.handle();
    delta.source_value_set = stored.handle();
    const long before = g_newCount.load();
    const uint64_t roomAgain = tarn_host::mergeOutputBound(update, stored);
    const int written = tarn_test::api().delta_publish_merge(&delta);
    const long after = g_newCount.load();
    EXPECT_EQ(room, roomAgain);
    EXPECT_LE(static_cast<uint64_t>(written), room);
    EXPECT_GT(written, 0);
    EXPECT_EQ(0, after - before);
  }
#endif
}

}  // namespace

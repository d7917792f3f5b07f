// Running out of memory in a per-message call: the only allocation a
// serialization makes is a tag stack deeper than its 64 inline entries, and
// when that fails the call fails rather than report a message it never wrote.
// Context creation under memory faults is swept by schema_fault_sweep, which
// needs a fresh process per fault.
#include <gtest/gtest.h>

#include <vector>

#include "module_fixture.h"

#ifndef TARN_TEST_SANITIZED
#include "host/alloc_counter.h"
#endif

namespace {

TEST(OutOfMemory, SerializationWhoseTagStackCannotGrowFails) {
#ifdef TARN_TEST_SANITIZED
  GTEST_SKIP() << "allocation faults are injected only without sanitizers";
#else
  const tarn_host::ModuleApi& api = tarn_test::api();  // loaded before any fault
  const char document[] = {0x0A, 0x00}, member[] = {0x08, 0x01};
  for (uint32_t open : {64u, 65u}) {
    SCOPED_TRACE(std::to_string(open) + " documents open at once");
    std::vector<tarn_message_value> values(open + 1);
    for (uint32_t d = 0; d <= open; ++d) {
      tarn_message_value& v = values[d];
      v = {};
      v.depth = d + 1;
      v.xpath_value.type_hint = d < open ? tarn_message_xpath_value_type_document : 0;
      v.xpath_value.raw_bytes = d < open ? document : member;
      v.xpath_value.raw_bytes_length = 2;
    }
    tarn_message_value_list list{values.size(), values.data()};
    std::vector<char> segment(1024, 'x');
    tarn_output_message_data out = {};
    out.body_type = 5;
    out.value_list = &list;
    out.message.data = segment.data();
    out.message.byte_count = 3;
    tarn_host::failAllocation(1, true);
    const int status = api.serialize_message(&out);
    tarn_host::stopFailing();
    // Within the inline entries nothing is allocated and the message is written.
    const bool grew = open > 64;
    EXPECT_EQ(grew, tarn_host::failedAllocations() > 0);
    EXPECT_EQ(grew ? TARN_FAILURE : TARN_SUCCESS, status);
    EXPECT_EQ(grew ? 3u : 3u + 5u * open + 2u, out.message.byte_count);
  }
#endif
}

}  // namespace

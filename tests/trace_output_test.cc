// The bounded output: every piece fits whole or stops the trace, numbers
// demand 64 free bytes, text already in the buffer stays, and a cut trace is
// exactly the finished trace up to the last piece that fitted.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "trace_support.h"
#include "wire.h"

namespace {

using trace_test::trace;
using wire::Body;

const std::string sampleBody = wire::fromHex(
    "08 96 01 12 02 61 62 19 00 00 00 00 00 00 04 40 22 02 01 04 2a 03 0a 01 78 35 00 00 80 3e");

TEST(TraceOutput, CapacityAndPrefix) {
  const std::string a1 = Body().varint(1, 1);
  struct Case {
    const char* name;
    std::string prefix;
    size_t capacity;
    int status;
    std::string text;
  };
  const std::vector<Case> cases = {
      {"the 17-byte text needs 78", "", 78, 0, "protobuf({\"a\":1})"},
      {"77 stops before the number", "", 77, 255, "protobuf({\"a\":"},
      {"nothing free", "", 0, 255, ""},
      {"eight free bytes write nothing", "", 8, 255, ""},
      {"nine hold the opening only", "", 9, 255, "protobuf("},
      {"text kept, eight free", "xyz", 11, 255, "xyz"},
      {"text kept, nine free", "xyz", 12, 255, "xyzprotobuf("},
      {"appended behind text", "abc", 4096, 0, "abcprotobuf({\"a\":1})"},
      {"appended, 63 free before the number", "abc", 80, 255, "abcprotobuf({\"a\":"},
      {"appended, 64 free before the number", "abc", 81, 0, "abcprotobuf({\"a\":1})"},
      {"a full buffer stays full", "0123456789", 10, 255, "0123456789"},
  };
  for (const Case& c : cases) {
    auto result = trace(trace_test::tiny(), a1, c.capacity, c.prefix);
    EXPECT_EQ(c.status, result.status) << c.name;
    EXPECT_EQ(c.text, result.text) << c.name;
  }
}

// Each number write demands 64 free bytes however short its text.
TEST(TraceOutput, NumbersDemandSixtyFourBytes) {
  const uint32_t fixedMax[] = {4294967295u};
  struct Case {
    const char* name;
    tarn_message_type_context (*ctx)();
    std::string body;
    std::string before;  // the text before the number
    std::string full;
  };
  const std::vector<Case> cases = {
      {"varint", trace_test::tiny, Body().varint(1, 7), "protobuf({\"a\":", "protobuf({\"a\":7})"},
      {"double", trace_test::rich, Body().f64(1, 123456789.0),
       "protobuf({\"f_double\":", "protobuf({\"f_double\":1.23457e+08})"},
      {"fixed64", trace_test::rich, Body().fixed64(6, 5),
       "protobuf({\"f_fixed64\":", "protobuf({\"f_fixed64\":5})"},
      {"fixed32", trace_test::rich, Body().fixed32(7, 9),
       "protobuf({\"f_fixed32\":", "protobuf({\"f_fixed32\":9})"},
      {"packed fixed32", trace_test::packed, Body().str(7, std::string((const char*)fixedMax, 4)),
       "protobuf({\"p_fixed32\":[", "protobuf({\"p_fixed32\":[4294967295]})"},
      {"packed sint64", trace_test::packed, Body().str(6, "\x03"), "protobuf({\"p_sint64\":[",
       "protobuf({\"p_sint64\":[-2]})"},
  };
  for (const Case& c : cases) {
    auto full = trace(c.ctx(), c.body);
    EXPECT_EQ(c.full, full.text) << c.name;
    auto short63 = trace(c.ctx(), c.body, c.before.size() + 63);
    EXPECT_EQ(255, short63.status) << c.name;
    EXPECT_EQ(c.before, short63.text) << c.name;
    auto fits64 = trace(c.ctx(), c.body, c.before.size() + 64);
    EXPECT_EQ(0, fits64.status) << c.name;
    EXPECT_EQ(c.full, fits64.text) << c.name;
  }
}

// A trace ending in text (no number last) may fill the buffer exactly.
TEST(TraceOutput, ExactFill) {
  struct Case {
    const char* name;
    std::string body;
    std::string full;
  };
  const std::vector<Case> cases = {
      {"empty body", "", "protobuf({})"},
      {"string", Body().str(2, "ab"), "protobuf({\"name\":\"ab\"})"},
      {"nested", Body().msg(5, Body().str(1, "q")), "protobuf({\"inner\":{\"label\":\"q\"}})"},
  };
  for (const Case& c : cases) {
    auto exact = trace(trace_test::sample(), c.body, c.full.size());
    EXPECT_EQ(0, exact.status) << c.name;
    EXPECT_EQ(c.full, exact.text) << c.name;
    auto oneShort = trace(trace_test::sample(), c.body, c.full.size() - 1);
    EXPECT_EQ(255, oneShort.status) << c.name;
    EXPECT_EQ(c.full.substr(0, c.full.size() - 1), oneShort.text) << c.name;
  }
}

// Over every capacity the worked example either traces whole or leaves a
// prefix of its text that ends where a piece would not fit.
TEST(TraceOutput, EveryCapacityGivesAPrefix) {
  const std::string full =
      "protobuf({\"id\":150,\"name\":\"ab\",\"score\":2.5,\"deltas\":[-1,2],"
      "\"inner\":{\"label\":\"x\"},\"ratio\":0.25})";
  // The last number, 0.25, starts at 89 and demands 64 bytes.
  const size_t needed = full.find("0.25") + 64;
  ASSERT_EQ(153u, needed);
  for (size_t capacity = 0; capacity <= needed + 10; ++capacity) {
    auto result = trace(trace_test::sample(), sampleBody, capacity);
    EXPECT_EQ(capacity >= needed ? 0 : 255, result.status) << capacity;
    if (result.status == 0) {
      EXPECT_EQ(full, result.text) << capacity;
    } else {
      EXPECT_EQ(full.substr(0, result.text.size()), result.text) << capacity;
    }
  }
  // Where cuts land: a name is one piece, and so is each number.
  EXPECT_EQ("protobuf({\"", trace(trace_test::sample(), sampleBody, 12).text);
  EXPECT_EQ("protobuf({\"id", trace(trace_test::sample(), sampleBody, 13).text);
  EXPECT_EQ("protobuf({\"id\":", trace(trace_test::sample(), sampleBody, 78).text);
  EXPECT_EQ("protobuf({\"id\":150,\"name\":\"ab\",\"score\":",
            trace(trace_test::sample(), sampleBody, 100).text);
}

// A host buffer whose length already exceeds its capacity has no room: the
// trace fails and touches nothing.
TEST(TraceOutput, LengthBeyondCapacity) {
  char out[16];
  std::memset(out, trace_test::sentinel, sizeof(out));
  tarn_trace_buffer in = {sampleBody.data(), sampleBody.size()};
  tarn_trace_output_buffer buffer = {out, 8, 12};
  EXPECT_EQ(255, tarn_test::api().trace_message(trace_test::sample(), &in, &buffer));
  EXPECT_EQ(12u, buffer.length);
  EXPECT_EQ(std::string(16, trace_test::sentinel), std::string(out, 16));
}

}  // namespace

// A body nested 100,000 levels deep must not take the host down: the parser,
// the tracer and the merge each stop at their nesting limit of 100 levels
// with a defined result, and serialization, which keeps its open levels in a
// list rather than on the stack, writes the whole depth.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "module_fixture.h"
#include "wire.h"

namespace {

using tarn_test::api;

const int depth = 100000;
// Nesting limits of the module: levels below the body that the parser enters,
// braces the tracer opens, merges nested inside one another.
const uint32_t parser_limit = 100;
const int trace_limit = 100;

tarn_message_type_context deepContext() {
  static tarn_message_type_context context =
      tarn_test::makeContext(tarn_test::dataDir(), "deep.proto", "tarn.deep.Node");
  return context;
}

// `levels` Node.child fields around value = 7, built from the inside out so
// that every length prefix is known before it is written.
std::string deepBody(int levels) {
  const std::string inner = wire::Body().varint(2, 7);
  std::vector<size_t> lengths(levels + 1);
  lengths[0] = inner.size();
  for (int i = 1; i <= levels; ++i)
    lengths[i] = 1 + wire::varintBytes(lengths[i - 1]).size() + lengths[i - 1];
  std::string body;
  body.reserve(lengths[levels]);
  for (int i = levels; i >= 1; --i) body += '\x0A' + wire::varintBytes(lengths[i - 1]);
  return body + inner;
}

TEST(DeepNesting, ParseStopsAtTheNestingLimit) {
  ASSERT_NE(deepContext(), nullptr);
  const std::string body = deepBody(depth);
  tarn_host::ValueSet set;
  EXPECT_EQ(tarn_test::parse(deepContext(), body, set), TARN_FAILURE);

  // One message entry per level the parser entered, each the only child of the
  // one before; the field that would open one level more is not stored.
  ASSERT_EQ(set.size(), parser_limit);
  const char* pTag = body.data();
  for (uint32_t i = 0; i < parser_limit; ++i) {
    const tarn_message_value_set_entry& e = set[i];
    EXPECT_EQ(e.parent, i == 0 ? tarn_message_value_invalid_index : i - 1) << i;
    EXPECT_EQ(e.first_child, i + 1 < parser_limit ? i + 1 : tarn_message_value_invalid_index) << i;
    EXPECT_EQ(e.next_sibling, tarn_message_value_invalid_index) << i;
    ASSERT_EQ(e.raw_bytes, pTag) << i;
    EXPECT_EQ(e.raw_bytes + e.raw_bytes_length, body.data() + body.size()) << i;
    // The next level's field follows this one's tag and length prefix.
    if (i + 1 < parser_limit) pTag += 1 + wire::varintBytes(set[i + 1].raw_bytes_length).size();
  }
}

TEST(DeepNesting, TraceEndsTheLevelThatWouldOpenOneTooMany) {
  const std::string body = deepBody(depth);
  std::string expected = "protobuf({";
  for (int i = 1; i < trace_limit; ++i) expected += "\"child\":{";
  expected += std::string(trace_limit, '}') + ")";

  std::string buffer(1 << 20, '\0');
  tarn_trace_output_buffer output = {&buffer[0], buffer.size(), 0};
  tarn_trace_buffer input = {body.data(), body.size()};
  ASSERT_EQ(api().trace_message(deepContext(), &input, &output), TARN_SUCCESS);
  EXPECT_EQ(buffer.substr(0, output.length), expected);
}

}  // namespace

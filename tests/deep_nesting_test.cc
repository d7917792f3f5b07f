// The one nesting limit: 100 message levels below the body are entered and
// the 101st is not, by the parser and the tracer alike (the merge's limit on
// nested merges, which parsed sets never reach, is tested on hand-made sets in
// merge_test.cc). Each is tested just below, at and beyond the limit, and at
// 100,000 levels, where a walk without the limit would exhaust the stack.
// Serialization keeps its open levels in a list rather than on the stack and
// writes the whole depth.
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "host/module_driver.h"
#include "module_fixture.h"
#include "wire.h"

namespace {

using tarn_test::api;

const int depth = 100000;
const size_t limit = 100;
const size_t levelCases[] = {99, 100, 101, depth};

tarn_message_type_context deepContext() {
  static tarn_message_type_context context =
      tarn_test::makeContext(tarn_test::dataDir(), "deep.proto", "tarn.deep.Node");
  return context;
}

// `levels` Node.child fields around value = 7.
std::string deepBody(size_t levels) { return wire::nestedChain(levels, wire::Body().varint(2, 7)); }

TEST(NestingLimit, ParserFailsBeyondItKeepingTheLevelsItEntered) {
  ASSERT_NE(deepContext(), nullptr);
  for (size_t levels : levelCases) {
    SCOPED_TRACE(levels);
    const std::string body = deepBody(levels);
    tarn_host::ValueSet set;
    const bool within = levels <= limit;
    EXPECT_EQ(tarn_test::parse(deepContext(), body, set), within ? TARN_SUCCESS : TARN_FAILURE);

    // One message entry per level entered, each the only child of the one
    // before; within the limit the value follows, beyond it the field that
    // would open one level more is not stored.
    const uint32_t entered = static_cast<uint32_t>(std::min(levels, limit));
    ASSERT_EQ(set.size(), entered + (within ? 1 : 0));
    const char* pTag = body.data();
    for (uint32_t i = 0; i < set.size(); ++i) {
      const tarn_message_value_set_entry& e = set[i];
      EXPECT_EQ(e.parent, i == 0 ? tarn_message_value_invalid_index : i - 1) << i;
      EXPECT_EQ(e.first_child, i + 1 < set.size() ? i + 1 : tarn_message_value_invalid_index) << i;
      EXPECT_EQ(e.next_sibling, tarn_message_value_invalid_index) << i;
      ASSERT_EQ(e.raw_bytes, pTag) << i;
      EXPECT_EQ(e.raw_bytes + e.raw_bytes_length, body.data() + body.size()) << i;
      // The next level's field follows this one's tag and length prefix.
      if (i + 1 < set.size()) pTag += 1 + wire::varintBytes(set[i + 1].raw_bytes_length).size();
    }
    if (within) {
      EXPECT_EQ(set[entered].l, 7) << "the value";
    }
  }
}

TEST(NestingLimit, TracerEndsTheLevelThatHoldsTheTooDeepField) {
  for (size_t levels : levelCases) {
    SCOPED_TRACE(levels);
    const std::string body = deepBody(levels);
    std::string expected = "protobuf({";
    for (size_t i = 0; i < std::min(levels, limit); ++i) expected += "\"child\":{";
    if (levels <= limit) expected += "\"value\":7";
    expected += std::string(std::min(levels, limit) + 1, '}') + ")";

    std::string buffer(1 << 20, '\0');
    tarn_trace_output_buffer output = {&buffer[0], buffer.size(), 0};
    ASSERT_EQ(tarn_test::driver().trace(deepContext(), body.data(), body.size(), output),
              TARN_SUCCESS);
    EXPECT_EQ(buffer.substr(0, output.length), expected);
  }
}

TEST(DeepNesting, MergeOfTheBodyOverItselfGivesTheBody) {
  // Both sides parse to the same hundred levels; the merge nests through them
  // and copies the deepest entry's bytes, the rest of the body, whole. Every
  // prefix of the body is minimal, so the merged message is the body again.
  const std::string body = deepBody(depth);
  tarn_host::ValueSet update, stored;
  ASSERT_EQ(tarn_test::parse(deepContext(), body, update), TARN_FAILURE);
  ASSERT_EQ(tarn_test::parse(deepContext(), body, stored), TARN_FAILURE);
  std::string segment = "head";
  const uint32_t count = tarn_test::driver().merge(update.handle(), stored.handle(), segment);
  EXPECT_EQ(count, 4 + body.size());
  EXPECT_TRUE(segment == "head" + body) << "merged " << segment.size() << " bytes";
  EXPECT_EQ(update.size(), 0u);
}

TEST(DeepNesting, SerializeNestsEveryLevelWithoutTheStack) {
  // 100,000 documents, each the only member of the one before, around value = 7.
  const std::string member = wire::Body().varint(2, 7);
  const std::string documentTag = "\x0A";
  std::vector<tarn_message_value> values(depth + 1);
  for (int i = 0; i <= depth; ++i) {
    tarn_message_value& v = values[i];
    v = tarn_message_value{};
    v.depth = static_cast<uint32_t>(i + 1);
    const bool isDocument = i < depth;
    v.xpath_value.type_hint =
        isDocument ? tarn_message_xpath_value_type_document : tarn_message_xpath_value_type_int;
    v.xpath_value.raw_bytes = isDocument ? documentTag.data() : member.data();
    v.xpath_value.raw_bytes_length = isDocument ? documentTag.size() : member.size();
  }
  tarn_message_value_list list = {values.size(), values.data()};

  // Every level: its tag, then its length in four bytes, filled out with
  // continuation bytes.
  std::string expected;
  expected.reserve(depth * 5 + member.size());
  for (int i = 0; i < depth; ++i)
    expected += '\x0A' + wire::paddedVarint((depth - i - 1) * 5 + member.size(), 4);
  expected += member;

  tarn_message_segment message = {};
  const int room = tarn_test::driver().serializeRoom(list, message);
  ASSERT_GE(room, 0);
  // The size answer covers every four-byte length slot.
  std::string segment(static_cast<size_t>(room), '\0');
  message.data = &segment[0];
  ASSERT_EQ(tarn_test::driver().serialize(list, message), TARN_SUCCESS);
  ASSERT_EQ(message.byte_count, expected.size());
  EXPECT_TRUE(segment.compare(0, expected.size(), expected) == 0);
}

}  // namespace

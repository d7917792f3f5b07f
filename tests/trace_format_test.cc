// The trace text, byte for byte: field rendering by wire type and field type,
// packed lists, raw strings, unknown fields and cut-off bodies.
#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <string>
#include <vector>

#include "trace_support.h"
#include "wire.h"

namespace {

using trace_test::trace;
using wire::Body;

struct Case {
  const char* name;
  tarn_message_type_context (*ctx)();
  std::string body;
  std::string text;  // between "protobuf(" and ")"
};

void expectAll(const std::vector<Case>& cases) {
  for (const Case& c : cases) {
    auto result = trace(c.ctx(), c.body);
    EXPECT_EQ(0, result.status) << c.name;
    EXPECT_EQ("protobuf(" + c.text + ")", result.text) << c.name << ": " << wire::hex(c.body);
  }
}

TEST(TraceFormat, WorkedExamples) {
  auto body = wire::fromHex(
      "08 96 01 12 02 61 62 19 00 00 00 00 00 00 04 40 22 02 01 04 2a 03 0a 01 78 35 00 00 80 3e");
  auto result = trace(trace_test::sample(), body);
  EXPECT_EQ(0, result.status);
  EXPECT_EQ(
      "protobuf({\"id\":150,\"name\":\"ab\",\"score\":2.5,\"deltas\":[-1,2],"
      "\"inner\":{\"label\":\"x\"},\"ratio\":0.25})",
      result.text);
  EXPECT_EQ(95u, result.text.size());

  result = trace(trace_test::sample(), wire::fromHex("38 01 48 05 08 01"));
  EXPECT_EQ(0, result.status);
  EXPECT_EQ("protobuf({\"offset\":1})", result.text);
}

// Unpacked values are formatted by wire type, whatever the field's type.
TEST(TraceFormat, ScalarsByWireType) {
  const uint64_t max64 = std::numeric_limits<uint64_t>::max();
  const auto rich = trace_test::rich;
  expectAll({
      {"empty", rich, "", "{}"},
      {"int32 -2", rich, Body().varint(5, uint64_t(-2)), "{\"f_int32\":18446744073709551614}"},
      {"int64 -1", rich, Body().varint(3, max64), "{\"f_int64\":18446744073709551615}"},
      {"uint64 max", rich, Body().varint(4, max64), "{\"f_uint64\":18446744073709551615}"},
      {"uint32", rich, Body().varint(13, 4294967295u), "{\"f_uint32\":4294967295}"},
      {"bool true", rich, Body().varint(8, 1), "{\"f_bool\":1}"},
      {"enum", rich, Body().varint(14, 2), "{\"f_enum\":2}"},
      {"enum negative", rich, Body().varint(14, uint64_t(-3)), "{\"f_enum\":18446744073709551613}"},
      {"sint32 -1 stays zigzag", rich, Body().sint(17, -1), "{\"f_sint32\":1}"},
      {"sint64 2 stays zigzag", rich, Body().sint(18, 2), "{\"f_sint64\":4}"},
      {"double", rich, Body().f64(1, 2.5), "{\"f_double\":2.5}"},
      {"double %g six digits", rich, Body().f64(1, 123456789.0), "{\"f_double\":1.23457e+08}"},
      {"double half", rich, Body().f64(1, 0.5), "{\"f_double\":0.5}"},
      {"double hundred", rich, Body().f64(1, 100.0), "{\"f_double\":100}"},
      {"double negative", rich, Body().f64(1, -1e-300), "{\"f_double\":-1e-300}"},
      {"fixed64 max is -1", rich, Body().fixed64(6, max64), "{\"f_fixed64\":-1}"},
      {"sfixed64", rich, Body().fixed64(16, uint64_t(-5)), "{\"f_sfixed64\":-5}"},
      {"fixed32 max is -1", rich, Body().fixed32(7, 4294967295u), "{\"f_fixed32\":-1}"},
      {"sfixed32", rich, Body().fixed32(15, uint32_t(-7)), "{\"f_sfixed32\":-7}"},
      {"float", rich, Body().f32(2, 0.25f), "{\"f_float\":0.25}"},
      {"float widened", rich, Body().f32(2, 0.1f), "{\"f_float\":0.1}"},
      {"repeated repeats its key", rich, Body().varint(21, 1).varint(21, 2).varint(5, 3),
       "{\"r_int32\":1,\"r_int32\":2,\"f_int32\":3}"},
      {"nested", rich, Body().msg(11, Body().varint(1, 1).str(2, "t")).varint(5, 9),
       "{\"f_message\":{\"i32\":1,\"text\":\"t\"},\"f_int32\":9}"},
      {"empty nested", rich, Body().msg(11, Body()), "{\"f_message\":{}}"},
      {"string", rich, Body().str(9, "hello world"), "{\"f_string\":\"hello world\"}"},
      {"empty string", rich, Body().str(9, ""), "{\"f_string\":\"\"}"},
      {"bytes", rich, Body().str(12, std::string("\x01\xff", 2)),
       "{\"f_bytes\":\"" + std::string("\x01\xff", 2) + "\"}"},
  });
}

// The tracer trusts the wire type over the schema.
TEST(TraceFormat, WireTypeDisagreeingWithSchema) {
  const auto rich = trace_test::rich;
  expectAll({
      {"string as varint", rich, Body().varint(9, 5), "{\"f_string\":5}"},
      {"double as varint", rich, Body().varint(1, 7), "{\"f_double\":7}"},
      {"int32 as fixed32", rich, Body().fixed32(5, uint32_t(-3)), "{\"f_int32\":-3}"},
      {"float as fixed64", rich, Body().fixed64(2, 10), "{\"f_float\":10}"},
      {"double as fixed32", rich, Body().fixed32(1, 12), "{\"f_double\":12}"},
      {"int32 as length", rich, Body().str(5, "xy"), "{\"f_int32\":\"xy\"}"},
      {"message as varint", rich, Body().varint(11, 3), "{\"f_message\":3}"},
      {"wire types 3,4,6,7 keep only the key", rich,
       Body().tag(5, 3).tag(5, 4).tag(5, 6).tag(5, 7).varint(8, 1),
       "{\"f_int32\":,\"f_int32\":,\"f_int32\":,\"f_int32\":,\"f_bool\":1}"},
      {"group fields read as the outer level's",
       [] { return trace_test::context("trace.proto", "tarn.trace.WithGroup"); },
       Body().tag(1, 3).varint(2, 7).tag(1, 4).varint(2, 8),
       "{\"block\":,\"outer_x\":7,\"block\":,\"outer_x\":8}"},
  });
}

TEST(TraceFormat, StringsAreCopiedRaw) {
  const std::string raw("q\"u\0t\\e\n", 8);
  expectAll({
      {"quote, NUL, backslash, newline", trace_test::rich, Body().str(9, raw),
       "{\"f_string\":\"" + raw + "\"}"},
      {"only NULs", trace_test::rich, Body().str(12, std::string(3, '\0')),
       "{\"f_bytes\":\"" + std::string(3, '\0') + "\"}"},
  });
}

// Packed payloads are formatted by field type.
TEST(TraceFormat, PackedByFieldType) {
  const auto packed = trace_test::packed;
  auto fixed = [](std::initializer_list<uint32_t> v) {
    return std::string(reinterpret_cast<const char*>(v.begin()), v.size() * 4);
  };
  auto fixed64 = [](std::initializer_list<uint64_t> v) {
    return std::string(reinterpret_cast<const char*>(v.begin()), v.size() * 8);
  };
  auto floats = [](std::initializer_list<float> v) {
    return std::string(reinterpret_cast<const char*>(v.begin()), v.size() * 4);
  };
  auto doubles = [](std::initializer_list<double> v) {
    return std::string(reinterpret_cast<const char*>(v.begin()), v.size() * 8);
  };
  const uint64_t m1 = uint64_t(-1);
  expectAll({
      {"int32", packed, Body().str(1, wire::packedVarints(std::vector<uint64_t>{1, 150, m1})),
       "{\"p_int32\":[1,150,18446744073709551615]}"},
      {"int64", packed, Body().str(2, wire::packedVarints(std::vector<uint64_t>{0, m1 - 1})),
       "{\"p_int64\":[0,18446744073709551614]}"},
      {"uint32", packed, Body().str(3, wire::packedVarints(std::vector<uint64_t>{4294967295u})),
       "{\"p_uint32\":[4294967295]}"},
      {"uint64", packed, Body().str(4, wire::packedVarints(std::vector<uint64_t>{m1})),
       "{\"p_uint64\":[18446744073709551615]}"},
      {"sint32 -1, 2", packed,
       Body().str(5, wire::packedVarints(std::vector<uint64_t>{wire::zigzag(-1), wire::zigzag(2)})),
       "{\"p_sint32\":[-1,2]}"},
      {"sint64 extremes", packed,
       Body().str(6, wire::packedVarints(
                         std::vector<uint64_t>{wire::zigzag(std::numeric_limits<int64_t>::min()),
                                               wire::zigzag(std::numeric_limits<int64_t>::max())})),
       "{\"p_sint64\":[-9223372036854775808,9223372036854775807]}"},
      {"fixed32 unsigned", packed, Body().str(7, fixed({4294967295u, 3})),
       "{\"p_fixed32\":[4294967295,3]}"},
      {"fixed64 unsigned", packed, Body().str(8, fixed64({m1})),
       "{\"p_fixed64\":[18446744073709551615]}"},
      {"sfixed32", packed, Body().str(9, fixed({uint32_t(-2), 5})), "{\"p_sfixed32\":[-2,5]}"},
      {"sfixed64", packed, Body().str(10, fixed64({m1})), "{\"p_sfixed64\":[-1]}"},
      {"double", packed, Body().str(11, doubles({2.5, 123456789.0})),
       "{\"p_double\":[2.5,1.23457e+08]}"},
      {"float 0.25, 1.5", packed, Body().str(12, floats({0.25f, 1.5f})),
       "{\"p_float\":[0.25,1.5]}"},
      {"bool", packed, Body().str(13, wire::fromHex("01 00 01")), "{\"p_bool\":[1,0,1]}"},
      {"enum", packed, Body().str(14, wire::fromHex("05 00")), "{\"p_enum\":[5,0]}"},
      {"empty payload", packed, Body().str(5, ""), "{\"p_sint32\":[]}"},
      {"two payloads, two lists", packed, Body().str(1, "\x01").str(1, "\x02"),
       "{\"p_int32\":[1],\"p_int32\":[2]}"},
      // The same values unpacked: zigzag left undecoded, fixed32 signed.
      {"packed sint32 arriving unpacked", packed, Body().sint(5, -1).sint(5, 2),
       "{\"p_sint32\":1,\"p_sint32\":4}"},
      {"packed fixed32 arriving unpacked", packed, Body().fixed32(7, 4294967295u),
       "{\"p_fixed32\":-1}"},
      {"unpacked repeated sint32", packed, Body().sint(15, -1).sint(15, 2),
       "{\"u_sint32\":1,\"u_sint32\":4}"},
      {"unpacked repeated fixed32", packed, Body().fixed32(16, 4294967295u), "{\"u_fixed32\":-1}"},
  });
}

TEST(TraceFormat, UnknownFieldEndsItsLevel) {
  const auto node = trace_test::node;
  expectAll({
      {"first field unknown", node, Body().varint(9, 1).varint(2, 1), "{}"},
      {"field number 0", node, Body().varint(0, 1).varint(2, 1), "{}"},
      {"after a known field", node, Body().varint(2, 1).varint(9, 1).varint(2, 2), "{\"value\":1}"},
      {"inside a nested message only", node,
       Body().msg(1, Body().varint(2, 1).varint(9, 1).varint(2, 2)).varint(2, 3),
       "{\"child\":{\"value\":1},\"value\":3}"},
      {"field number aliasing a real one above 32 bits", node,
       Body().tag(0x1FFFFFFF, 0).raw(wire::varintBytes(1)).varint(2, 5), "{}"},
      {"tag beyond 32 bits", node,
       Body().raw(wire::varintBytes(((uint64_t{1} << 32) + 2) << 3)).raw("\x05").varint(2, 6),
       "{}"},
  });
}

// Bodies cut off anywhere: nothing is read past the body, the level holding
// the cut ends, and a value that cannot be read leaves no key behind.
TEST(TraceFormat, CutOffBodies) {
  const auto node = trace_test::node;
  const auto rich = trace_test::rich;
  const auto packed = trace_test::packed;
  expectAll({
      {"tag cut", node, Body().varint(2, 1).raw("\x88"), "{\"value\":1}"},
      {"varint value cut", node, Body().varint(2, 1).raw("\x10\xff\xff"), "{\"value\":1}"},
      {"length cut", node, Body().raw("\x1a\x80"), "{}"},
      {"fixed64 with 7 bytes", rich, Body().tag(1, 1).raw(std::string(7, '\x01')), "{}"},
      {"fixed32 with 3 bytes", rich, Body().varint(8, 1).tag(7, 5).raw("abc"), "{\"f_bool\":1}"},
      {"string longer than the body", node,
       Body().raw("\x1a\x0a"
                  "abc"),
       "{\"note\":\"abc\"}"},
      {"length near 2^64", node, Body().tag(3, 2).raw(wire::varintBytes(~uint64_t{0})).raw("ab"),
       "{\"note\":\"ab\"}"},
      {"nested longer than the body", node, Body().raw("\x0a\x20").varint(2, 4),
       "{\"child\":{\"value\":4}}"},
      {"cut inside a nested level ends only it", node,
       Body().msg(1, Body().varint(2, 1).raw("\x10")).varint(2, 9),
       "{\"child\":{\"value\":1},\"value\":9}"},
      {"nested length clamped to its level", node,
       Body()
           .msg(1, Body().raw("\x1a\x7f"
                              "xy"))
           .varint(2, 9),
       "{\"child\":{\"note\":\"xy\"},\"value\":9}"},
      {"packed varint cut closes the list", packed, Body().str(1, "\x01\x80").varint(17, 2),
       "{\"p_int32\":[1],\"tail\":2}"},
      {"packed fixed32 cut", packed,
       Body().str(7, std::string("\xff\xff\xff\xff\x01\x02", 6)).varint(17, 3),
       "{\"p_fixed32\":[4294967295],\"tail\":3}"},
      {"packed double cut", packed, Body().str(11, std::string(12, '\0')), "{\"p_double\":[0]}"},
      {"packed payload cut by the body", packed, Body().raw(wire::fromHex("3a 08 01 00 00 00 02")),
       "{\"p_fixed32\":[1]}"},
  });
}

TEST(TraceFormat, LongVarintsStayModulo64Bits) {
  const auto tiny = trace_test::tiny;
  const std::string nine(9, '\x80');
  expectAll({
      {"ten bytes, all ones", tiny, Body().tag(1, 0).raw(std::string(9, '\xff') + "\x01"),
       "{\"a\":18446744073709551615}"},
      {"tenth byte keeps only bit 63", tiny, Body().tag(1, 0).raw(nine + "\x7f"),
       "{\"a\":9223372036854775808}"},
      {"eleven bytes: the high group is dropped", tiny, Body().tag(1, 0).raw(nine + "\x80\x01"),
       "{\"a\":0}"},
      {"twenty bytes", tiny,
       Body().tag(1, 0).raw("\x85" + std::string(18, '\xff') + "\x7f").varint(1, 2),
       "{\"a\":18446744073709551493,\"a\":2}"},
      {"long tag", tiny, Body().raw("\x88" + nine + wire::fromHex("80 00 05")), "{\"a\":5}"},
      {"long length", trace_test::node, Body().raw("\x1a\x82" + nine + wire::fromHex("00") + "xyz"),
       "{\"note\":\"xy\"}"},
  });
}

// The nested chain child.child.child... of `levels` messages, each holding the
// next, built from the inside out.
std::string chain(size_t levels) {
  std::vector<size_t> lengths(levels + 1, 0);
  for (size_t i = 1; i <= levels; ++i)
    lengths[i] = lengths[i - 1] + 1 + wire::varintBytes(lengths[i - 1]).size();
  std::string out;
  out.reserve(lengths[levels]);
  for (size_t i = levels; i > 0; --i) out += "\x0a" + wire::varintBytes(lengths[i - 1]);
  return out;
}

TEST(TraceFormat, DeepNestingStopsAtTheLimit) {
  std::string open, close;
  for (int i = 0; i < 99; ++i) open += "{\"child\":";
  close.assign(100, '}');
  const std::string full = "protobuf(" + open + "{" + close + ")";

  // Up to the limit every level shows; beyond it the deepest level ends.
  auto shallow = trace(trace_test::node(), chain(98));
  EXPECT_EQ(0, shallow.status);
  EXPECT_EQ("protobuf(" + open.substr(0, 98 * 9) + "{}" + std::string(98, '}') + ")", shallow.text);
  for (size_t levels : {99, 100, 1000, 100000}) {
    auto result = trace(trace_test::node(), chain(levels), 1 << 20);
    EXPECT_EQ(0, result.status) << levels;
    EXPECT_EQ(full, result.text) << levels;
  }
  auto small = trace(trace_test::node(), chain(100000), 500);
  EXPECT_EQ(255, small.status);
  EXPECT_EQ(full.substr(0, small.text.size()), small.text);
}

}  // namespace

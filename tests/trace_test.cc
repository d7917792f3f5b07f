// The trace text, byte for byte: rendering by wire type and field type, packed
// lists, raw strings, unknown fields, cut-off bodies, and the bounded output
// (every piece fits whole or stops the trace; a number demands 64 free bytes).
#include <gtest/gtest.h>

#include <limits>

#include "random_message.h"
#include "wire.h"

namespace {

using tarn_test::trace;
using wire::Body;

tarn_message_type_context sample() {
  return tarn_test::context("sample.proto", "tarn.test.Sample");
}
tarn_message_type_context tiny() { return tarn_test::context("trace.proto", "tarn.trace.Tiny"); }
tarn_message_type_context node() { return tarn_test::context("trace.proto", "tarn.trace.Node"); }
tarn_message_type_context packed() {
  return tarn_test::context("trace.proto", "tarn.trace.Packed");
}
tarn_message_type_context rich() { return tarn_test::rich(); }
tarn_message_type_context names() { return tarn_test::context("trace.proto", "tarn.trace.Names"); }
tarn_message_type_context sparse() {
  return tarn_test::context("parser.proto", "tarn.ptest.Sparse");
}

const std::string sampleBody = wire::fromHex(
    "08 96 01 12 02 61 62 19 00 00 00 00 00 00 04 40 22 02 01 04 2a 03 0a 01 78 35 00 00 80 3e");
const std::string sampleText = R"(protobuf({"id":150,"name":"ab","score":2.5,"deltas":[-1,2],)"
                               R"("inner":{"label":"x"},"ratio":0.25}))";

TEST(TraceFormat, WorkedExamples) {
  auto result = trace(sample(), sampleBody);
  EXPECT_EQ(0, result.status);
  EXPECT_EQ(sampleText, result.text);
  EXPECT_EQ(95u, result.text.size());
  result = trace(sample(), wire::fromHex("38 01 48 05 08 01"));
  EXPECT_EQ(0, result.status);
  EXPECT_EQ(R"(protobuf({"offset":1}))", result.text);
}

template <typename T>
std::string le(std::initializer_list<T> v) {
  return std::string(reinterpret_cast<const char*>(v.begin()), v.size() * sizeof(T));
}

// Unpacked values read by wire type whatever the field's type; packed lists by
// field type. The texts are those between "protobuf(" and ")".
TEST(TraceFormat, RenderingTable) {
  const uint64_t m1 = ~uint64_t{0};
  const std::string nine(9, '\x80'), raw("q\"u\0t\\e\n", 8);
  const struct {
    tarn_message_type_context (*ctx)();
    std::string body;
    std::string text;
  } cases[] = {
      {rich, "", "{}"},
      {rich, Body().varint(5, uint64_t(-2)), R"({"f_int32":18446744073709551614})"},
      {rich, Body().varint(13, 4294967295u), R"({"f_uint32":4294967295})"},
      {rich, Body().sint(17, -1), R"({"f_sint32":1})"},
      {rich, Body().sint(18, 2), R"({"f_sint64":4})"},
      {rich, Body().f64(1, 123456789.0), R"({"f_double":1.23457e+08})"},
      {rich, Body().f64(1, 100.0), R"({"f_double":100})"},
      {rich, Body().f64(1, -1e-300), R"({"f_double":-1e-300})"},
      {rich, Body().f32(2, 0.1f), R"({"f_float":0.1})"},
      {rich, Body().fixed64(6, m1), R"({"f_fixed64":-1})"},
      {rich, Body().fixed32(7, 4294967295u), R"({"f_fixed32":-1})"},
      {rich, Body().varint(21, 1).varint(21, 2).varint(5, 3),
       R"({"r_int32":1,"r_int32":2,"f_int32":3})"},
      {rich, Body().msg(11, Body().varint(1, 1).str(2, "t")).msg(11, Body()),
       R"({"f_message":{"i32":1,"text":"t"},"f_message":{}})"},
      {rich, Body().str(9, raw), R"({"f_string":")" + raw + R"("})"},
      {rich, Body().varint(9, 5), R"({"f_string":5})"},
      {rich, Body().str(5, "xy"), R"({"f_int32":"xy"})"},
      {rich, Body().fixed64(2, 10), R"({"f_float":10})"},
      {rich, Body().tag(5, 3).tag(5, 4).tag(5, 6).tag(5, 7).varint(8, 1),
       R"({"f_int32":,"f_int32":,"f_int32":,"f_int32":,"f_bool":1})"},
      {packed, Body().str(1, wire::packedVarints({1, 150, m1})),
       R"({"p_int32":[1,150,18446744073709551615]})"},
      {packed, Body().str(5, wire::packedVarints({wire::zigzag(-1), wire::zigzag(2)})),
       R"({"p_sint32":[-1,2]})"},
      {packed, Body().str(6, wire::packedVarints({m1})), R"({"p_sint64":[-9223372036854775808]})"},
      {packed, Body().str(7, le<uint32_t>({4294967295u, 3})), R"({"p_fixed32":[4294967295,3]})"},
      {packed, Body().str(8, le<uint64_t>({m1})), R"({"p_fixed64":[18446744073709551615]})"},
      {packed, Body().str(9, le<uint32_t>({uint32_t(-2)})), R"({"p_sfixed32":[-2]})"},
      {packed, Body().str(11, le<double>({2.5, 123456789.0})), R"({"p_double":[2.5,1.23457e+08]})"},
      {packed, Body().str(12, le<float>({0.25f, 1.5f})), R"({"p_float":[0.25,1.5]})"},
      {packed, Body().str(5, "").str(1, "\x01").str(1, "\x02"),
       R"({"p_sint32":[],"p_int32":[1],"p_int32":[2]})"},
      {packed, Body().sint(5, -1).sint(5, 2), R"({"p_sint32":1,"p_sint32":4})"},
      {packed, Body().fixed32(7, 4294967295u), R"({"p_fixed32":-1})"},
      {packed, Body().sint(15, -1).sint(15, 2), R"({"u_sint32":1,"u_sint32":4})"},
      {packed, Body().fixed32(16, 4294967295u), R"({"u_fixed32":-1})"},
      // An unknown field ends its level only.
      {node, Body().varint(9, 1).varint(2, 1), "{}"},
      {node, Body().varint(2, 1).varint(9, 1).varint(2, 2), R"({"value":1})"},
      {node, Body().msg(1, Body().varint(2, 1).varint(9, 1).varint(2, 2)).varint(2, 3),
       R"({"child":{"value":1},"value":3})"},
      // A tag is split as the parser splits it: the number's low 32 bits.
      {node, Body().raw(wire::varintBytes(((uint64_t{1} << 32) + 2) << 3)).raw("\x05").varint(2, 6),
       R"({"value":5,"value":6})"},
      {sparse, Body().msg(70000, Body().varint(536870911, 1).varint(4999, 2)).varint(1, 3),
       R"({"next":{"big":1},"one":3})"},
      {names, Body().varint(1, 1).varint(2, 2).varint(3, 3).varint(4, 4).varint(5, 5),
       R"({"abcdefghijkl":1,"abcdefghijklm":2,"abc":3,"abcd":4,"a_much_longer_name_than_sixteen":5})"},
      {names, Body().varint(2, 1).varint(1, 2).varint(4, 3).varint(3, 4),
       R"({"abcdefghijklm":1,"abcdefghijkl":2,"abcd":3,"abc":4})"},
      {names, Body().varint(5, 1).varint(5, 2),
       R"({"a_much_longer_name_than_sixteen":1,)"
       R"("a_much_longer_name_than_sixteen":2})"},
      // Cut bodies: the level holding the cut ends; an unreadable value leaves no key.
      {node, Body().varint(2, 1).raw("\x10\xff\xff"), R"({"value":1})"},
      {rich, Body().varint(8, 1).tag(7, 5).raw("abc"), R"({"f_bool":1})"},
      {node, wire::fromHex("1a 0a 61 62 63"), R"({"note":"abc"})"},
      {node, Body().tag(3, 2).raw(wire::varintBytes(m1)).raw("ab"), R"({"note":"ab"})"},
      {node, Body().str(1, wire::fromHex("1a 7f 78 79")).varint(2, 9),
       R"({"child":{"note":"xy"},"value":9})"},
      {packed, Body().str(1, "\x01\x80").varint(17, 2), R"({"p_int32":[1],"tail":2})"},
      {packed, wire::fromHex("3a 08 01 00 00 00 02"), R"({"p_fixed32":[1]})"},
      // Long varints stay modulo 2^64.
      {tiny, Body().tag(1, 0).raw(std::string(9, '\xff') + "\x01"),
       R"({"a":18446744073709551615})"},
      {tiny, Body().tag(1, 0).raw(nine + "\x80\x01"), R"({"a":0})"},
  };
  for (const auto& c : cases) {
    auto result = trace(c.ctx(), c.body);
    EXPECT_EQ(0, result.status) << wire::hex(c.body);
    EXPECT_EQ("protobuf(" + c.text + ")", result.text) << wire::hex(c.body);
  }
}

TEST(TraceOutput, CapacityAndExistingText) {
  const std::string a1 = Body().varint(1, 1);
  const struct {
    const char* name;
    std::string prefix;
    size_t capacity;
    int status;
    std::string text;
  } cases[] = {
      // The 14 bytes before the number plus the 64 it demands.
      {"the 17-byte text needs 78", "", 78, 0, R"(protobuf({"a":1}))"},
      {"77 stops before the number", "", 77, 255, R"(protobuf({"a":)"},
      {"nothing free", "", 0, 255, ""},
      {"eight free bytes write nothing", "", 8, 255, ""},
      {"nine hold the opening only", "", 9, 255, "protobuf("},
      {"text kept, eight free", "xyz", 11, 255, "xyz"},
      {"text kept, nine free", "xyz", 12, 255, "xyzprotobuf("},
      {"appended, 63 free before the number", "abc", 80, 255, R"(abcprotobuf({"a":)"},
      {"appended, 64 free before the number", "abc", 81, 0, R"(abcprotobuf({"a":1}))"},
      {"a full buffer stays full", "0123456789", 10, 255, "0123456789"},
  };
  for (const auto& c : cases) {
    auto result = trace(tiny(), a1, c.capacity, c.prefix);
    EXPECT_EQ(c.status, result.status) << c.name;
    EXPECT_EQ(c.text, result.text) << c.name;
  }
  // A name is one piece, and so is each number.
  EXPECT_EQ(R"(protobuf({")", trace(sample(), sampleBody, 12).text);
  EXPECT_EQ(R"(protobuf({"id":150,"name":"ab","score":)", trace(sample(), sampleBody, 100).text);
  EXPECT_EQ(sampleText, trace(sample(), sampleBody, sampleText.find("0.25") + 64).text);
  EXPECT_EQ(255, trace(sample(), sampleBody, sampleText.find("0.25") + 63).status);
  // A string value is its quotes and its bytes, each piece written if it fits.
  const std::string text = Body().str(2, "abcdef");
  EXPECT_EQ(R"(protobuf({"name":")", trace(sample(), text, 23).text);
  EXPECT_EQ(R"(protobuf({"name":"abcdef)", trace(sample(), text, 24).text);
  EXPECT_EQ(R"(protobuf({"name":"abcdef")", trace(sample(), text, 25).text);
  // A text ending in punctuation may fill the buffer exactly.
  const std::string nested = R"(protobuf({"inner":{"label":"q"}}))";
  EXPECT_EQ(nested, trace(sample(), Body().msg(5, Body().str(1, "q")), nested.size()).text);
}

// Random rich bodies, cut and damaged: in bounds (the trace helper checks the
// buffer and the body is an exact heap copy) and a cut trace is a prefix of
// the whole one.
TEST(TraceRandom, CutAndDamagedBodiesStayInBounds) {
  const auto* type = tarn_test::TestSchema::get().type("tarn.test.Rich");
  std::mt19937_64 rng(20240611);
  for (int seed = 0; seed < 200; ++seed) {
    const std::string body = tarn_test::randomBody(type, seed);
    std::vector<std::string> bodies = {body};
    for (int i = 0; i < 3 && !body.empty(); ++i) {
      bodies.push_back(body.substr(0, rng() % body.size()));
      bodies.push_back(body);
      for (int flips = 1 + rng() % 3; flips > 0; --flips)
        bodies.back()[rng() % body.size()] ^= static_cast<char>(1 + rng() % 255);
    }
    for (const std::string& b : bodies) {
      auto whole = trace(rich(), b, 16 * b.size() + 128);
      ASSERT_EQ(0, whole.status) << wire::hex(b);
      ASSERT_EQ("protobuf({", whole.text.substr(0, 10));
      EXPECT_EQ("})", whole.text.substr(whole.text.size() - 2));
      auto cut = trace(rich(), b, rng() % (whole.text.size() + 80));
      EXPECT_EQ(whole.text.substr(0, cut.status == 0 ? std::string::npos : cut.text.size()),
                cut.text)
          << wire::hex(b);
    }
  }
}

}  // namespace

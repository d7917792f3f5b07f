// Serialization: the writer's varint primitives (inline code of the module's
// header, compiled here as into the module), and value lists through the two
// doors: exact bytes for nesting by depth and the room the size function asks.
#include <gtest/gtest.h>

#include <climits>

#include "module_fixture.h"
#include "modules/message_type/protobuf/tarn_protobuf_v2_serializer.h"
#include "wire.h"

namespace {

using S = tarn_protobuf_v2_serializer;
using wire::fromHex;
using wire::hex;

TEST(Varint, MinimalAndFixedSizeBytes) {
  const std::tuple<uint64_t, size_t, const char*> minimal[] = {
      {0, 1, "00"},
      {127, 1, "7F"},
      {128, 2, "80 01"},
      {300, 2, "AC 02"},
      {16384, 3, "80 80 01"},
      {268435456, 5, "80 80 80 80 01"},
      {~uint64_t{0}, 10, "FF FF FF FF FF FF FF FF FF 01"}};
  for (const auto& [value, bytes, text] : minimal) {
    char buffer[16] = {};
    char* p = buffer;
    EXPECT_EQ(bytes, varintSize(value)) << value;
    writeVarint(p, value);
    EXPECT_EQ(text, hex(std::string(buffer, p - buffer))) << value;
  }
  // A slot of `bytes` bytes: the value padded with continuation bits, or
  // nothing written when it does not fit.
  const std::tuple<uint64_t, unsigned, const char*> fixed[] = {
      {0, 4, "80 80 80 00"},      {300, 4, "AC 82 80 00"}, {268435455, 4, "FF FF FF 7F"},
      {268435456, 4, ""},         {300, 2, "AC 02"},       {128, 1, ""},
      {1, 6, "81 80 80 80 80 00"}};
  for (const auto& [value, bytes, text] : fixed) {
    char buffer[16];
    std::memset(buffer, 0xEE, sizeof buffer);
    char* p = buffer;
    EXPECT_EQ(*text != 0, writeFixedSizeVarint(p, value, bytes)) << value;
    EXPECT_EQ(text, hex(std::string(buffer, p - buffer))) << value;
    EXPECT_EQ('\xEE', buffer[p - buffer]) << value;  // nothing beyond the slot
  }
}

struct V {
  uint32_t depth;
  bool document;
  std::string rawHex;
};

std::vector<tarn_message_value> toValues(const std::vector<V>& values_,
                                         std::vector<std::string>& raw_) {
  std::vector<tarn_message_value> out(values_.size());
  raw_.resize(values_.size());
  for (size_t i = 0; i < values_.size(); ++i) {
    raw_[i] = fromHex(values_[i].rawHex);
    out[i] = tarn_message_value{};
    out[i].depth = values_[i].depth;
    out[i].xpath_value.type_hint = values_[i].document ? tarn_message_xpath_value_type_document
                                                       : tarn_message_xpath_value_type_string;
    out[i].xpath_value.raw_bytes = raw_[i].data();
    out[i].xpath_value.raw_bytes_length = raw_[i].size();
  }
  return out;
}

// Runs size and serialize on a segment holding "HEADcc" (cc at byte_offset 4),
// sized as the size function says and followed by canary bytes. Returns the
// bytes the call added, "!" when it wrote outside its room.
std::string serialize(const std::vector<V>& values_, int& status_) {
  std::vector<std::string> raw;
  std::vector<tarn_message_value> values = toValues(values_, raw);
  tarn_message_value_list list{values.size(), values.data()};
  tarn_output_message_data out = {};
  out.body_type = 5;
  out.value_list = &list;
  out.message.byte_offset = 4;
  out.message.byte_count = 2;
  const int size = tarn_test::api().compute_serialize_size(&out);
  const std::string canary(16, '\xCD');
  std::string segment = "HEADcc" + std::string(size, '\xAB') + canary;
  out.message.data = &segment[0];
  status_ = tarn_test::api().serialize_message(&out);
  if (segment.compare(0, 6, "HEADcc") != 0 || segment.compare(6 + size, 16, canary) != 0 ||
      out.message.byte_count > 2u + size)
    return "!";
  return segment.substr(6, out.message.byte_count - 2);
}

TEST(Serialize, ListsGiveExactBytesInsideTheRoom) {
  const struct {
    const char* name;
    std::vector<V> values;
    std::string expected;  // hex
  } cases[] = {
      {"empty", {}, ""},
      {"flat values concatenate", {{1, false, "08 01"}, {1, false, "1A 01 61"}}, "08 01 1A 01 61"},
      {"a fall closes the submessage",
       {{1, true, "1A 04 08 01 10 02"},
        {2, false, "08 01"},
        {2, false, "10 02"},
        {1, false, "20 03"}},
       "1A 84 80 80 00 08 01 10 02 20 03"},
      {"the end of the list closes it",
       {{1, true, "1A 04 08 01 10 02"}, {2, false, "08 01"}},
       "1A 82 80 80 00 08 01"},
      {"a fall of two closes two, inner first",
       {{1, true, "0A 05 12 03 08 07"},
        {2, true, "12 02 08 07"},
        {3, false, "08 07"},
        {1, false, "18 01"}},
       "0A 87 80 80 00 12 82 80 80 00 08 07 18 01"},
      {"empty nested message", {{1, true, "0A 00"}}, "0A 80 80 80 00"},
      {"a multi-byte tag is copied whole",
       {{1, true, "82 01 00"}, {2, false, "08 01"}},
       "82 01 82 80 80 00 08 01"},
      {"a document without bytes refuses the list", {{1, false, "08 01"}, {1, true, ""}}, ""},
      {"a fall below zero closes nothing",
       {{2, false, "08 01"}, {0, false, "10 02"}},
       "08 01 10 02"},
      {"a rise without a document opens nothing",
       {{1, true, "0A 00"}, {2, false, "08 01"}, {4, false, "10 02"}, {1, false, "20 04"}},
       "0A 84 80 80 00 08 01 10 02 20 04"},
  };
  for (const auto& c : cases) {
    int status = -1;
    EXPECT_EQ(c.expected, hex(serialize(c.values, status))) << c.name;
    EXPECT_EQ(TARN_SUCCESS, status) << c.name;
  }
  // Documents open at depths 1..n at once, one member at the bottom: the tag
  // stack goes past its inline entries at 65.
  for (uint32_t n : {1u, 64u, 65u, 130u}) {
    std::vector<V> values;
    for (uint32_t d = 1; d <= n; ++d) values.push_back({d, true, "0A 00"});
    values.push_back({n + 1, false, "08 01"});
    std::string expected = fromHex("08 01");
    for (uint32_t d = 0; d < n; ++d)
      expected = "\x0A" + wire::paddedVarint(expected.size(), 4) + expected;
    int status = -1;
    EXPECT_EQ(hex(expected), hex(serialize(values, status))) << n;
  }
}

TEST(Serialize, SizeSumsCountsAndRawLengths) {
  std::vector<std::string> raw;
  std::vector<tarn_message_value> list =
      toValues({{1, false, "08 01 02"}, {1, false, "10 02 03 04"}}, raw);
  tarn_message_value_list valueList{list.size(), list.data()};
  tarn_output_message_data out = {};
  out.body_type = 5;
  out.value_list = &valueList;
  out.message.byte_count = 10;
  out.data.byte_count = 20;
  EXPECT_EQ(37, tarn_test::api().compute_serialize_size(&out));
  // Every document adds its four-byte length slot.
  list = toValues({{1, false, "08 01 02"}, {1, false, "10 02 03 04"}, {1, true, "0A 00"}}, raw);
  valueList = {list.size(), list.data()};
  EXPECT_EQ(43, tarn_test::api().compute_serialize_size(&out));
  // A sum an int cannot hold is reported as INT_MAX, never wrapped.
  list[0].xpath_value.raw_bytes_length = size_t{1} << 40;
  EXPECT_EQ(INT_MAX, tarn_test::api().compute_serialize_size(&out));
  // Another body type asks for nothing and writes nothing.
  char segment[64] = {};
  out.message.data = segment;
  out.body_type = 4;
  EXPECT_EQ(0, tarn_test::api().compute_serialize_size(&out));
  EXPECT_EQ(TARN_FAILURE, tarn_test::api().serialize_message(&out));
  EXPECT_EQ(10u, out.message.byte_count);
}

}  // namespace

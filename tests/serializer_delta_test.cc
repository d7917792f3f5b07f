// Serialization from a value list through the module's two doors: exact bytes
// for nesting by depth, the room the size function asks for, and lists that
// break the nesting rules.
#include <gtest/gtest.h>

#include <climits>
#include <string>
#include <vector>

#include "module_fixture.h"
#include "wire.h"

namespace {

using wire::fromHex;
using wire::hex;

struct V {
  uint32_t depth;
  bool document;
  std::string raw;
};

V doc(uint32_t depth, const std::string& rawHex) { return V{depth, true, fromHex(rawHex)}; }
V val(uint32_t depth, const std::string& rawHex) { return V{depth, false, fromHex(rawHex)}; }

std::vector<tarn_message_value> toValues(const std::vector<V>& values_) {
  std::vector<tarn_message_value> out(values_.size());
  for (size_t i = 0; i < values_.size(); ++i) {
    out[i] = tarn_message_value{};
    out[i].depth = values_[i].depth;
    out[i].xpath_value.type_hint = values_[i].document ? tarn_message_xpath_value_type_document
                                                       : tarn_message_xpath_value_type_string;
    out[i].xpath_value.raw_bytes = values_[i].raw.data();
    out[i].xpath_value.raw_bytes_length = values_[i].raw.size();
  }
  return out;
}

struct Serialized {
  std::string body;  // bytes the call added
  int status = 0;
  int size = 0;
  bool inRoom = true;  // nothing written beyond the size the module asked for
};

// Runs size and serialize on a segment with content at an offset, sized as the
// size function says, followed by canary bytes.
Serialized serialize(const std::vector<V>& values_, uint32_t bodyType_ = 5) {
  std::vector<tarn_message_value> values = toValues(values_);
  tarn_message_value_list list{values.size(), values.data()};
  const std::string head = "HEAD";   // before byte_offset
  const std::string content = "cc";  // already in the segment
  tarn_output_message_data out = {};
  out.body_type = bodyType_;
  out.value_list = &list;
  out.message.byte_offset = head.size();
  out.message.byte_count = content.size();
  Serialized result;
  result.size = tarn_test::api().compute_serialize_size(&out);
  const std::string canary(16, '\xCD');
  std::string segment = head + content + std::string(result.size, '\xAB') + canary;
  out.message.data = &segment[0];
  result.status = tarn_test::api().serialize_message(&out);
  const size_t begin = head.size() + content.size();
  result.body = segment.substr(begin, out.message.byte_count - content.size());
  result.inRoom = segment.compare(0, begin, head + content) == 0 &&
                  segment.compare(segment.size() - canary.size(), canary.size(), canary) == 0;
  return result;
}

// The four-byte length slot as the module fills it.
std::string slot(size_t length_) {
  std::string out;
  for (int i = 0; i < 4; ++i) {
    out.push_back(static_cast<char>((length_ & 0x7F) | (i < 3 ? 0x80 : 0)));
    length_ >>= 7;
  }
  return out;
}

struct ListCase {
  const char* name;
  std::vector<V> values;
  std::string expected;  // hex
};

std::vector<ListCase> listCases() {
  return {
      {"Empty", {}, ""},
      {"FlatValuesConcatenate",
       {val(1, "08 01"), val(1, "10 02"), val(1, "1A 01 61")},
       "08 01 10 02 1A 01 61"},
      {"FallClosesTheSubmessage",
       {doc(1, "1A 04 08 01 10 02"), val(2, "08 01"), val(2, "10 02"), val(1, "20 03")},
       "1A 84 80 80 00 08 01 10 02 20 03"},
      {"EndOfListClosesTheSubmessage",
       {doc(1, "1A 04 08 01 10 02"), val(2, "08 01"), val(2, "10 02")},
       "1A 84 80 80 00 08 01 10 02"},
      {"FallOfTwoClosesTwoInnerFirst",
       {doc(1, "0A 05 12 03 08 07"), doc(2, "12 02 08 07"), val(3, "08 07"), val(1, "18 01")},
       "0A 87 80 80 00 12 82 80 80 00 08 07 18 01"},
      {"EmptyNestedMessage", {doc(1, "0A 00")}, "0A 80 80 80 00"},
      {"SameDepthAfterADocumentIsInside",
       {doc(1, "0A 00"), val(1, "08 01")},
       "0A 82 80 80 00 08 01"},
      {"MultiByteTagIsCopiedWhole",
       {doc(1, "82 01 00"), val(2, "08 01")},
       "82 01 82 80 80 00 08 01"},
      {"DocumentWithoutBytesRefusesTheList", {val(1, "08 01"), doc(1, "")}, ""},
      {"DocumentWithCutOffTagRefusesTheList", {doc(1, "80 80")}, ""},
      // Lists that break the nesting rules: nothing but open submessages is
      // ever closed, and every open one is closed.
      {"FallBelowZeroClosesNothing", {val(2, "08 01"), val(0, "10 02")}, "08 01 10 02"},
      {"FallDeeperThanOpened",
       {doc(5, "0A 00"), val(6, "08 01"), val(0, "10 02")},
       "0A 82 80 80 00 08 01 10 02"},
      {"RiseWithoutADocumentOpensNothing",
       {doc(1, "0A 00"), val(2, "08 01"), val(4, "10 02"), val(2, "18 03"), val(1, "20 04")},
       "0A 84 80 80 00 08 01 10 02 18 03 20 04"},
      {"HugeDepthsAreOrdinaryRisesAndFalls",
       {doc(0xFFFFFFFE, "0A 00"), val(0xFFFFFFFF, "08 01"), val(0, "10 02")},
       "0A 82 80 80 00 08 01 10 02"},
  };
}

void PrintTo(const ListCase& c, std::ostream* os) { *os << c.name; }

class SerializeLists : public ::testing::TestWithParam<ListCase> {};

TEST_P(SerializeLists, WritesExactBytesInsideTheRoom) {
  const ListCase& c = GetParam();
  const Serialized s = serialize(c.values);
  EXPECT_EQ(TARN_SUCCESS, s.status);
  EXPECT_EQ(c.expected, hex(s.body));
  EXPECT_TRUE(s.inRoom);
}

INSTANTIATE_TEST_SUITE_P(Cases, SerializeLists, ::testing::ValuesIn(listCases()),
                         [](const ::testing::TestParamInfo<ListCase>& info) {
                           return std::string(info.param.name);
                         });

TEST(SerializeDeep, TagStackBeyondItsInlineEntries) {
  // Documents open at depths 1..n at once, one member at the bottom.
  for (uint32_t n : {1u, 3u, 64u, 65u, 130u}) {
    SCOPED_TRACE(n);
    std::vector<V> values;
    for (uint32_t d = 1; d <= n; ++d) values.push_back(doc(d, "0A 00"));
    values.push_back(val(n + 1, "08 01"));
    std::string expected = fromHex("08 01");
    for (uint32_t d = 0; d < n; ++d) expected = "\x0A" + slot(expected.size()) + expected;
    const Serialized s = serialize(values);
    EXPECT_EQ(hex(expected), hex(s.body));
    EXPECT_TRUE(s.inRoom);
  }
}

TEST(SerializeSize, SumsCountsAndRawLengths) {
  std::vector<V> values = {val(1, "08 01 02"), val(1, "10 02 03 04")};
  std::vector<tarn_message_value> list = toValues(values);
  tarn_message_value_list valueList{list.size(), list.data()};
  tarn_output_message_data out = {};
  out.body_type = 5;
  out.value_list = &valueList;
  out.message.byte_count = 10;
  out.data.byte_count = 20;
  EXPECT_EQ(37, tarn_test::api().compute_serialize_size(&out));

  // Every document adds its four-byte length slot.
  values.push_back(doc(1, "0A 00"));
  list = toValues(values);
  valueList = {list.size(), list.data()};
  EXPECT_EQ(43, tarn_test::api().compute_serialize_size(&out));

  // A sum an int cannot hold is reported as INT_MAX, never wrapped.
  list[0].xpath_value.raw_bytes_length = size_t{1} << 40;
  EXPECT_EQ(INT_MAX, tarn_test::api().compute_serialize_size(&out));

  out.body_type = 4;
  EXPECT_EQ(0, tarn_test::api().compute_serialize_size(&out));
}

TEST(SerializeSize, OtherBodyTypesWriteNothing) {
  const Serialized s = serialize({val(1, "08 01")}, 4);
  EXPECT_EQ(0, s.size);
  EXPECT_EQ(TARN_FAILURE, s.status);
  EXPECT_EQ("", s.body);
  EXPECT_TRUE(s.inRoom);
}

TEST(SerializeSize, NoValueListIsAnEmptyList) {
  tarn_output_message_data out = {};
  out.body_type = 5;
  out.message.byte_count = 3;
  EXPECT_EQ(3, tarn_test::api().compute_serialize_size(&out));
  EXPECT_EQ(TARN_SUCCESS, tarn_test::api().serialize_message(&out));
  EXPECT_EQ(3u, out.message.byte_count);
}

}  // namespace

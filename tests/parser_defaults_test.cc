// Defaults of absent fields: their values, and the order that the omitted
// ranges give them (present fields first, then range by range in the order
// the ranges were made, then the trailing fields).
#include <gtest/gtest.h>

#include "parser_support.h"
#include "wire.h"

namespace {

using ptest::INV;
using ptest::Parsed;
using ptest::pathHash;
using ptest::type;

std::string nameOf(const ptest::entry_t& e) { return ptest::text(e.tag_bytes, e.tag_length); }

TEST(ParserDefaults, ZeroByteBodyGetsEveryDeclaredDefault) {
  struct Want {
    const char* name;
    uint16_t mask;
    int64_t l;
    double d;
    const char* text;  // string defaults
    uint32_t textLength;
    uint8_t flags;
  };
  const std::vector<Want> want = {
      {"d_int32", 18, -42, 0, nullptr, 0, 0},
      {"d_int64", 18, -9000000000ll, 0, nullptr, 0, 0},
      {"d_uint32", 18, 4000000000ll, 0, nullptr, 0, 0},
      {"d_uint64", 18, -1, 0, nullptr, 0, 0},
      {"d_double", 9, 0, -0.25, nullptr, 0, 0},
      {"d_float", 9, 0, 1.5, nullptr, 0, 0},
      {"d_bool", 18, 1, 0, nullptr, 0, 0},
      {"d_enum", 18, -5, 0, nullptr, 0, 0},
      {"d_string", 0, 0, 0, "hello", 5, 0},
      {"d_bytes", 0, 0, 0, "\001\000\002", 3, 0},
      {"must", 18, 5, 0, nullptr, 0, tarn_message_value_set_entry_flag_required},
  };
  Parsed parsed(type("Defaults"), "");
  ASSERT_EQ(0, parsed.status());
  ASSERT_EQ(want.size(), parsed.size());
  for (uint32_t i = 0; i < parsed.size(); ++i) {
    const auto& e = parsed[i];
    const Want& w = want[i];
    SCOPED_TRACE(w.name);
    EXPECT_EQ(w.name, nameOf(e));
    EXPECT_EQ(pathHash({w.name}), e.hash);
    EXPECT_EQ(w.mask, e.value_mask);
    EXPECT_EQ(w.mask == 9 ? 1 : w.mask == 18 ? 2 : 0, e.type_hint);
    if (w.mask == 18) {
      EXPECT_EQ(w.l, e.l);
      EXPECT_EQ(nullptr, e.string_rep);
    } else if (w.mask == 9) {
      EXPECT_EQ(w.d, e.d);
      EXPECT_EQ(nullptr, e.string_rep);
    } else {
      EXPECT_EQ(std::string(w.text, w.textLength), ptest::text(e.string_rep, e.string_rep_length));
      EXPECT_FALSE(parsed.inside(e.string_rep, 1));  // the schema's text, not the body
    }
    EXPECT_EQ(w.flags, e.value_flags);
    EXPECT_EQ(nullptr, e.raw_bytes);
    EXPECT_EQ(0u, e.raw_bytes_length);
    EXPECT_EQ(INV, e.parent);
    EXPECT_EQ(INV, e.first_child);
    EXPECT_EQ(i + 1 < parsed.size() ? i + 1 : INV, e.next_sibling);
  }
}

TEST(ParserDefaults, PresentFieldsGetNoDefaultAndAbsentNestedGetsNothing) {
  Parsed parsed(type("Defaults"), wire::Body().varint(1, 3).str(9, "x").varint(14, 8));
  ASSERT_EQ(0, parsed.status());
  std::vector<std::string> names;
  for (uint32_t i = 0; i < parsed.size(); ++i) names.push_back(nameOf(parsed[i]));
  EXPECT_EQ(
      (std::vector<std::string>{"d_int32", "d_string", "must", "d_int64", "d_uint32", "d_uint64",
                                "d_double", "d_float", "d_bool", "d_enum", "d_bytes"}),
      names);
  EXPECT_EQ(3, parsed[0].l);
  EXPECT_EQ(8, parsed[2].l);
}

// Wide: field fI has number I + 1 and default 100 + I; sent fields carry 1000 + I.
std::string wideBody(const std::vector<int>& indexes) {
  wire::Body body;
  for (int i : indexes) body.varint(static_cast<uint32_t>(i + 1), static_cast<uint64_t>(1000 + i));
  return body;
}

struct OrderCase {
  const char* name;
  std::vector<int> sent;      // field indexes in wire order
  std::vector<int> defaults;  // field indexes of the defaults, in stored order
};

std::vector<int> from(int first, int last, int step = 1) {
  std::vector<int> out;
  for (int i = first; step > 0 ? i <= last : i >= last; i += step) out.push_back(i);
  return out;
}

std::vector<int> join(std::vector<int> a, const std::vector<int>& b) {
  a.insert(a.end(), b.begin(), b.end());
  return a;
}

TEST(ParserDefaults, OmittedRangesOrderTheDefaults) {
  const std::vector<OrderCase> cases = {
      {"in order, no gaps", from(0, 39), {}},
      {"3 then 1", {3, 1}, join({0, 2}, from(4, 39))},
      {"2 then 0", {2, 0}, join({1}, from(3, 39))},
      {"repeated occurrence changes nothing", {1, 1, 4}, join({0, 2, 3}, from(5, 39))},
      {"split inside a range", {5, 2}, join({0, 1, 3, 4}, from(6, 39))},
      {"split at a range start", {5, 0, 1}, join({2, 3, 4}, from(6, 39))},
      // 16 gaps stay in the inline list, 17 and more move it to the heap.
      {"16 gaps", from(1, 31, 2), join(from(0, 30, 2), from(32, 39))},
      {"17 gaps", from(1, 33, 2), join(from(0, 32, 2), from(34, 39))},
      // Each split appends its upper part: the list is in append order, not
      // sorted, and grows to 20 ranges.
      {"20 ranges from splits", from(39, 1, -2), join({0}, from(38, 2, -2))},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    Parsed parsed(type("Wide"), wideBody(c.sent));
    ASSERT_EQ(0, parsed.status());
    ASSERT_EQ(c.sent.size() + c.defaults.size(), parsed.size());
    for (size_t k = 0; k < parsed.size(); ++k) {
      const auto& e = parsed[static_cast<uint32_t>(k)];
      const bool isDefault = k >= c.sent.size();
      const int index = isDefault ? c.defaults[k - c.sent.size()] : c.sent[k];
      SCOPED_TRACE("entry " + std::to_string(k));
      EXPECT_EQ("f" + std::to_string(index), nameOf(e));
      EXPECT_EQ((isDefault ? 100 : 1000) + index, e.l);
      EXPECT_EQ(isDefault, e.raw_bytes == nullptr);
    }
  }
}

TEST(ParserDefaults, NestedLevelsKeepTheirOwnRanges) {
  // r (index 2) first leaves a range (0, 2) at the top; the empty n is a
  // level of its own whose default d sits under n, and a then follows n.
  Parsed parsed(type("M"), wire::Body().varint(3, 1).msg(2, wire::Body()).varint(1, 2));
  ASSERT_EQ(0, parsed.status());
  ASSERT_EQ(4u, parsed.size());
  EXPECT_EQ("r", nameOf(parsed[0]));
  EXPECT_EQ("n", nameOf(parsed[1]));
  EXPECT_EQ("d", nameOf(parsed[2]));
  EXPECT_EQ(1u, parsed[2].parent);
  EXPECT_EQ(pathHash({"n", "d"}), parsed[2].hash);
  EXPECT_EQ("a", nameOf(parsed[3]));
  EXPECT_EQ(3u, parsed[1].next_sibling);
}

}  // namespace

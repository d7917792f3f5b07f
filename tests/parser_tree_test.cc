// The entry tree a parse builds: order, links, hashes, raw byte spans, and
// what a failure leaves behind.
#include <gtest/gtest.h>

#include "parser_support.h"
#include "wire.h"

namespace {

using ptest::INV;
using ptest::Parsed;
using ptest::pathHash;
using ptest::type;

struct ExpectedEntry {
  const char* name;
  uint32_t hash;
  uint16_t mask;
  uint8_t hint;
  int64_t value;
  long rawOffset;  // -1: null
  uint32_t rawLength;
  long stringOffset;  // -1: null
  uint32_t stringLength;
  uint32_t parent, firstChild, nextSibling;
};

void expectTree(const Parsed& parsed, const std::vector<ExpectedEntry>& expected) {
  ASSERT_EQ(expected.size(), parsed.size());
  for (uint32_t i = 0; i < parsed.size(); ++i) {
    SCOPED_TRACE("entry " + std::to_string(i));
    const auto& e = parsed[i];
    const auto& x = expected[i];
    EXPECT_EQ(x.name, ptest::text(e.tag_bytes, e.tag_length));
    EXPECT_EQ(x.hash, e.hash);
    EXPECT_EQ(x.mask, e.value_mask);
    EXPECT_EQ(x.hint, e.type_hint);
    EXPECT_EQ(x.value, e.l);
    EXPECT_EQ(0, e.value_flags);
    EXPECT_EQ(x.rawOffset, parsed.offset(e.raw_bytes));
    EXPECT_EQ(x.rawLength, e.raw_bytes_length);
    EXPECT_EQ(x.stringOffset, parsed.offset(e.string_rep));
    EXPECT_EQ(x.stringLength, e.string_rep_length);
    EXPECT_EQ(x.parent, e.parent);
    EXPECT_EQ(x.firstChild, e.first_child);
    EXPECT_EQ(x.nextSibling, e.next_sibling);
  }
}

TEST(ParserTree, WorkedExampleGivesSixLinkedEntries) {
  // a = 5; n { s = "x" }; r = 1; r = 2
  const std::string body = wire::fromHex("08 05  12 03 0A 01 78  18 01  18 02");
  Parsed parsed(type("M"), body);
  ASSERT_EQ(0, parsed.status());
  const uint32_t base = tarn_host::default_base_hash;
  const uint32_t nested = tarn_message_xpath_hash_add_separator(pathHash({"n"}, base));
  const uint32_t hs = tarn_message_xpath_hash_string("s", 1, nested);
  const uint32_t hd = tarn_message_xpath_hash_string("d", 1, nested);
  EXPECT_EQ(hs, pathHash({"n", "s"}));
  const uint32_t hr = pathHash({"r"});
  expectTree(parsed, {
                         {"a", pathHash({"a"}), 18, 2, 5, 0, 2, -1, 0, INV, INV, 1},
                         {"n", pathHash({"n"}), 0, 0, 0, 2, 5, -1, 0, INV, 2, 4},
                         {"s", hs, 0, 0, 0, 4, 3, 6, 1, 1, INV, 3},
                         {"d", hd, 18, 2, 7, -1, 0, -1, 0, 1, INV, INV},
                         {"r", hr, 18, 2, 1, 7, 2, -1, 0, INV, INV, 5},
                         {"r", hr, 18, 2, 2, 9, 2, -1, 0, INV, INV, INV},
                     });
}

TEST(ParserTree, HashesContinueTheValueSetBase) {
  const std::string body = wire::Body().msg(2, wire::Body().str(1, "x"));
  tarn_host::ValueSet set(0x12345678u);
  ASSERT_EQ(0, tarn_test::parse(type("M"), body, set));
  ASSERT_EQ(3u, set.size());
  EXPECT_EQ(pathHash({"n"}, 0x12345678u), set[0].hash);
  EXPECT_EQ(pathHash({"n", "s"}, 0x12345678u), set[1].hash);
  EXPECT_EQ(pathHash({"n", "d"}, 0x12345678u), set[2].hash);
}

TEST(ParserTree, NextOuterFieldLinksToTheMessageEntry) {
  // n { s, d } with both present, then a: a follows n, not d.
  const std::string body =
      wire::Body().msg(2, wire::Body().str(1, "q").varint(2, 9)).varint(1, 3).varint(3, 4);
  Parsed parsed(type("M"), body);
  ASSERT_EQ(0, parsed.status());
  ASSERT_EQ(5u, parsed.size());
  EXPECT_EQ(3u, parsed[0].next_sibling);  // n -> a
  EXPECT_EQ(1u, parsed[0].first_child);
  EXPECT_EQ(2u, parsed[1].next_sibling);  // s -> d
  EXPECT_EQ(INV, parsed[2].next_sibling);
  EXPECT_EQ(4u, parsed[3].next_sibling);  // a -> r
  EXPECT_EQ(9, parsed[2].l);
}

TEST(ParserTree, RepeatedFieldOccurrencesAreSiblingsWithOneHash) {
  const std::string body = wire::Body().varint(3, 1).varint(3, 2).varint(3, 3);
  Parsed parsed(type("M"), body);
  ASSERT_EQ(0, parsed.status());
  ASSERT_EQ(3u, parsed.size());
  for (uint32_t i = 0; i < 3; ++i) {
    EXPECT_EQ(pathHash({"r"}), parsed[i].hash);
    EXPECT_EQ(static_cast<int64_t>(i + 1), parsed[i].l);
    EXPECT_EQ(i < 2 ? i + 1 : INV, parsed[i].next_sibling);
  }
}

TEST(ParserTree, EmptyNestedMessageHoldsItsDefaultsOnly) {
  Parsed parsed(type("M"), wire::Body().str(2, ""));
  ASSERT_EQ(0, parsed.status());
  ASSERT_EQ(2u, parsed.size());
  EXPECT_EQ(1u, parsed[0].first_child);
  EXPECT_EQ(2u, parsed[0].raw_bytes_length);
  EXPECT_EQ(0u, parsed[1].parent);
  EXPECT_EQ(7, parsed[1].l);
  EXPECT_EQ(nullptr, parsed[1].raw_bytes);

  // A nested type without defaults: the message entry has no child at all.
  Parsed plain(type("Node"), wire::Body().msg(1, wire::Body().varint(2, 1)).varint(2, 4));
  ASSERT_EQ(0, plain.status());
  ASSERT_EQ(3u, plain.size());
  EXPECT_EQ(1u, plain[0].first_child);
  EXPECT_EQ(2u, plain[0].next_sibling);
}

TEST(ParserTree, RequiredFieldsCarryTheRequiredFlag) {
  Parsed parsed(type("Defaults"), wire::Body().varint(15, 1).varint(11, 2));
  ASSERT_EQ(0, parsed.status());
  ASSERT_GE(parsed.size(), 2u);
  EXPECT_EQ(tarn_message_value_set_entry_flag_required, parsed[0].value_flags);
  EXPECT_EQ(0, parsed[1].value_flags);
}

struct FailureCase {
  const char* name;
  std::string body;
  int status;
  uint32_t entries;  // stored before the parse stopped
};

TEST(ParserTree, FailuresKeepWhatWasStoredBefore) {
  const std::vector<FailureCase> cases = {
      {"unknown top-level field", wire::Body().varint(1, 5).varint(9, 1).varint(3, 1), 255, 1},
      {"unknown field inside nested",
       wire::Body().varint(1, 5).msg(2, wire::Body().str(1, "x").varint(7, 1)).varint(3, 1), 255,
       3},
      {"group start", wire::Body().varint(1, 5).tag(3, 3).varint(3, 1), 255, 1},
      {"group end", wire::Body().tag(3, 4), 255, 0},
      {"wire type 6", wire::Body().varint(1, 1).tag(1, 6), 255, 1},
      {"wire type 7", wire::Body().tag(1, 7), 255, 0},
      {"cut-off tag", wire::Body().varint(1, 5).raw("\x80"), 255, 1},
      {"field number 0", wire::Body().raw(wire::fromHex("00 01")), 255, 0},
      {"negative field number", wire::Body().raw(wire::varintBytes(uint64_t{0x80000000} << 3)), 255,
       0},
      {"field number beyond 32 bits", wire::Body().raw(wire::varintBytes(~uint64_t{0} << 3)), 255,
       0},
      {"length past the end", wire::Body().varint(1, 5).raw(wire::fromHex("12 05 0A 01 78")), 255,
       1},
      {"huge length", wire::Body().raw(wire::fromHex("12") + wire::varintBytes(~uint64_t{0})), 255,
       0},
      {"nested length past its level",
       wire::Body().msg(2, wire::Body().raw(wire::fromHex("0A 09 78"))), 255, 1},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    Parsed parsed(type("M"), c.body);
    EXPECT_EQ(c.status, parsed.status());
    EXPECT_EQ(c.entries, parsed.size());
  }
}

TEST(ParserTree, CutOffVarintValueIsZeroAndEndsTheLevel) {
  Parsed parsed(type("M"), wire::Body().varint(1, 5).raw(wire::fromHex("18 FF FF")));
  ASSERT_EQ(0, parsed.status());
  ASSERT_EQ(2u, parsed.size());
  EXPECT_EQ(0, parsed[1].l);
  EXPECT_EQ(3u, parsed[1].raw_bytes_length);
}

TEST(ParserTree, NestedFailureStoresNoDefaultsAnywhere) {
  // n fails after s: neither d (inner default) is stored, nor anything after n.
  Parsed parsed(type("M"), wire::Body().msg(2, wire::Body().str(1, "x").tag(2, 3)).varint(1, 1));
  EXPECT_EQ(255, parsed.status());
  ASSERT_EQ(2u, parsed.size());
  EXPECT_EQ("n", ptest::text(parsed[0].tag_bytes, parsed[0].tag_length));
  EXPECT_EQ("s", ptest::text(parsed[1].tag_bytes, parsed[1].tag_length));
}

// `levels` nested child messages, innermost empty, built from the inside out
// in linear time (concatenating would copy quadratically at 100,000 levels).
std::string nestedNodes(size_t levels) {
  std::vector<size_t> payload(levels + 1, 0);  // payload[k]: length of level k's body
  for (size_t k = levels; k-- > 0;) {
    payload[k] = 1 + wire::varintBytes(payload[k + 1]).size() + payload[k + 1];
  }
  std::string out;
  out.reserve(payload[0]);
  for (size_t k = 1; k <= levels; ++k) {
    out.push_back('\x0A');
    out += wire::varintBytes(payload[k]);
  }
  return out;
}

TEST(ParserTree, NestingDepthIsBounded) {
  // 100 nested levels parse: 100 message entries, and one default v per level.
  Parsed deepest(type("Node"), nestedNodes(100));
  EXPECT_EQ(0, deepest.status());
  EXPECT_EQ(100u + 101u, deepest.size());

  // One more is refused before its entry is stored.
  Parsed tooDeep(type("Node"), nestedNodes(101));
  EXPECT_EQ(255, tooDeep.status());
  EXPECT_EQ(100u, tooDeep.size());

  // A hostile depth returns instead of exhausting the stack.
  Parsed hostile(type("Node"), nestedNodes(100000));
  EXPECT_EQ(255, hostile.status());
  EXPECT_EQ(100u, hostile.size());
}

TEST(ParserTree, ZeroByteBodyStoresRootDefaultsOnly) {
  Parsed parsed(type("M"), "");
  EXPECT_EQ(0, parsed.status());
  EXPECT_EQ(0u, parsed.size());
}

}  // namespace

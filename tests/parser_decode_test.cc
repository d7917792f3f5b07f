// Which wire types each declared field type accepts and what it stores.
// AllTypes numbers each singular field by its declared type (1..18), packed
// fields by 20 + type, so a row names its field by type number alone.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>

#include "parser_support.h"
#include "wire.h"

namespace {

using ptest::INV;
using ptest::Parsed;
using ptest::type;

enum Kind { FAIL, LONG, DOUBLE, STRING, MESSAGE };

struct Outcome {
  Kind kind;
  int64_t l;
  double d;
};

Outcome fail() { return {FAIL, 0, 0}; }
Outcome asLong(int64_t v) { return {LONG, v, 0}; }
Outcome asDouble(double v) { return {DOUBLE, 0, v}; }
Outcome asString() { return {STRING, 0, 0}; }
Outcome asMessage() { return {MESSAGE, 0, 0}; }

// The payloads every row is sent with.
const uint64_t varintPayload = 0x180000001ull;             // bit 32 and bit 31 set, odd
const uint64_t fixed64Payload = 0x3FF8000000000000ull;     // the double 1.5
const uint32_t fixed32Payload = 0xBFC00000u;               // the float -1.5
const std::string lengthPayload = wire::fromHex("10 05");  // as N: d = 5

const int64_t F64 = static_cast<int64_t>(fixed64Payload);
const int64_t F32 = fixed32Payload;  // zero-extended
const int64_t V = static_cast<int64_t>(varintPayload);
const int64_t ZIGZAG_V = -3221225473ll;  // (v >> 1) inverted: v is odd
const int64_t INT32_V = -2147483647ll;   // low 32 bits 0x80000001

struct Row {
  int type;
  Outcome varint, fixed64, fixed32, length;
};

const Row rows[] = {
    {1, fail(), asDouble(1.5), asLong(F32), asString()},           // double
    {2, fail(), asLong(F64), asDouble(-1.5), asString()},          // float
    {3, asLong(V), asLong(F64), asLong(F32), asString()},          // int64
    {4, asLong(V), asLong(F64), asLong(F32), asString()},          // uint64
    {5, asLong(INT32_V), asLong(F64), asLong(F32), asString()},    // int32
    {6, fail(), asLong(F64), asLong(F32), asString()},             // fixed64
    {7, fail(), asLong(F64), asLong(F32), asString()},             // fixed32
    {8, asLong(V), asLong(F64), asLong(F32), asString()},          // bool
    {9, fail(), asLong(F64), asLong(F32), asString()},             // string
    {10, fail(), asLong(F64), asLong(F32), asString()},            // group
    {11, fail(), asLong(F64), asLong(F32), asMessage()},           // message
    {12, fail(), asLong(F64), asLong(F32), asString()},            // bytes
    {13, asLong(V), asLong(F64), asLong(F32), asString()},         // uint32
    {14, asLong(V), asLong(F64), asLong(F32), asString()},         // enum
    {15, fail(), asLong(F64), asLong(-1077936128), asString()},    // sfixed32
    {16, fail(), asLong(F64), asLong(F32), asString()},            // sfixed64
    {17, asLong(ZIGZAG_V), asLong(F64), asLong(F32), asString()},  // sint32
    {18, asLong(ZIGZAG_V), asLong(F64), asLong(F32), asString()},  // sint64
};

void expectOutcome(const Parsed& parsed, const std::string& body, const Outcome& want) {
  if (want.kind == FAIL) {
    EXPECT_EQ(255, parsed.status());
    EXPECT_EQ(0u, parsed.size());
    return;
  }
  ASSERT_EQ(0, parsed.status());
  ASSERT_EQ(want.kind == MESSAGE ? 2u : 1u, parsed.size());
  const auto& e = parsed[0];
  EXPECT_EQ(0, parsed.offset(e.raw_bytes));
  EXPECT_EQ(body.size(), e.raw_bytes_length);
  EXPECT_EQ(INV, e.next_sibling);
  switch (want.kind) {
    case LONG:
      EXPECT_EQ(18, e.value_mask);
      EXPECT_EQ(2, e.type_hint);
      EXPECT_EQ(want.l, e.l);
      EXPECT_EQ(nullptr, e.string_rep);
      break;
    case DOUBLE:
      EXPECT_EQ(9, e.value_mask);
      EXPECT_EQ(1, e.type_hint);
      EXPECT_EQ(want.d, e.d);
      break;
    case STRING:
      EXPECT_EQ(0, e.value_mask);
      EXPECT_EQ(0, e.type_hint);
      EXPECT_EQ(0, e.l);
      EXPECT_EQ(lengthPayload, ptest::text(e.string_rep, e.string_rep_length));
      EXPECT_EQ(static_cast<long>(body.size() - lengthPayload.size()), parsed.offset(e.string_rep));
      break;
    case MESSAGE:
      EXPECT_EQ(0, e.value_mask);
      EXPECT_EQ(0, e.type_hint);
      EXPECT_EQ(nullptr, e.string_rep);
      EXPECT_EQ(1u, e.first_child);
      EXPECT_EQ(0u, parsed[1].parent);
      EXPECT_EQ(5, parsed[1].l);
      break;
    case FAIL:
      break;
  }
}

TEST(ParserDecode, EveryFieldTypeAgainstEveryWireType) {
  for (const Row& row : rows) {
    const uint32_t f = static_cast<uint32_t>(row.type);
    SCOPED_TRACE("field type " + std::to_string(row.type));
    const std::string bodies[4] = {
        wire::Body().varint(f, varintPayload),
        wire::Body().fixed64(f, fixed64Payload),
        wire::Body().fixed32(f, fixed32Payload),
        wire::Body().str(f, lengthPayload),
    };
    const Outcome* outcomes[4] = {&row.varint, &row.fixed64, &row.fixed32, &row.length};
    for (int w = 0; w < 4; ++w) {
      SCOPED_TRACE("wire form " + std::to_string(w));
      Parsed parsed(type("AllTypes"), bodies[w]);
      expectOutcome(parsed, bodies[w], *outcomes[w]);
    }
    for (uint32_t unknownWire : {3u, 4u, 6u, 7u}) {
      SCOPED_TRACE("wire type " + std::to_string(unknownWire));
      Parsed parsed(type("AllTypes"), wire::Body().tag(f, unknownWire).raw(std::string(8, '\0')));
      EXPECT_EQ(255, parsed.status());
      EXPECT_EQ(0u, parsed.size());
    }
  }
}

struct ValueCase {
  const char* name;
  std::string body;
  Outcome want;
};

std::string tenByteMinusOne() { return wire::varintBytes(~uint64_t{0}); }

TEST(ParserDecode, ValueEdges) {
  const std::vector<ValueCase> cases = {
      {"sint32 1 is -1", wire::Body().varint(17, 1), asLong(-1)},
      {"sint32 4294967294", wire::Body().varint(17, 4294967294u), asLong(2147483647)},
      {"sint64 zigzag min", wire::Body().varint(18, ~uint64_t{0}), asLong(INT64_MIN)},
      {"sint64 zigzag max", wire::Body().varint(18, ~uint64_t{0} - 1), asLong(INT64_MAX)},
      {"int32 ten-byte -1", wire::Body().tag(5, 0).raw(tenByteMinusOne()), asLong(-1)},
      {"int64 ten-byte -1", wire::Body().tag(3, 0).raw(tenByteMinusOne()), asLong(-1)},
      {"uint32 keeps bit 32", wire::Body().varint(13, 4294967296u), asLong(4294967296)},
      {"uint64 above int64 max", wire::Body().varint(4, uint64_t{1} << 63), asLong(INT64_MIN)},
      {"bool 2 stays 2", wire::Body().varint(8, 2), asLong(2)},
      {"enum not declared", wire::Body().varint(14, 99), asLong(99)},
      {"float 1.5 widened", wire::Body().f32(2, 1.5f), asDouble(1.5)},
      {"float 0.1 widened", wire::Body().f32(2, 0.1f), asDouble(static_cast<double>(0.1f))},
      {"double", wire::Body().f64(1, -1e300), asDouble(-1e300)},
      {"int32 as fixed32 is unsigned", wire::Body().fixed32(5, 0xFFFFFFFFu), asLong(4294967295)},
      {"int32 as fixed64 is signed 64", wire::Body().fixed64(5, ~uint64_t{0}), asLong(-1)},
      {"sfixed32 negative", wire::Body().fixed32(15, 0xFFFFFFFEu), asLong(-2)},
      {"fixed32 max", wire::Body().fixed32(7, 0xFFFFFFFFu), asLong(4294967295)},
      // Over-long varints: groups past the 64th bit are dropped (value mod 2^64).
      {"eleven-byte varint",
       wire::Body().tag(3, 0).raw(wire::fromHex("81 80 80 80 80 80 80 80 80 80 00")), asLong(1)},
      {"twenty-byte varint drops high groups",
       wire::Body().tag(3, 0).raw(wire::fromHex("FF FF FF FF FF FF FF FF FF FF FF FF FF FF FF FF "
                                                "FF FF FF 7F")),
       asLong(-1)},
      {"ninth group keeps one bit",
       wire::Body().tag(4, 0).raw(wire::fromHex("80 80 80 80 80 80 80 80 80 7F")),
       asLong(INT64_MIN)},
      {"fixed32 with three bytes left", wire::Body().tag(7, 5).raw(std::string(3, '\x01')), fail()},
      {"fixed64 with seven bytes left", wire::Body().tag(6, 1).raw(std::string(7, '\x01')), fail()},
      {"double with nothing left", wire::Body().tag(1, 1), fail()},
      {"string past the end", wire::Body().tag(9, 2).raw(wire::fromHex("03 61 62")), fail()},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    Parsed parsed(type("AllTypes"), c.body);
    if (c.want.kind == FAIL) {
      EXPECT_EQ(255, parsed.status());
      EXPECT_EQ(0u, parsed.size());
      continue;
    }
    ASSERT_EQ(0, parsed.status());
    ASSERT_EQ(1u, parsed.size());
    EXPECT_EQ(c.body.size(), parsed[0].raw_bytes_length);
    if (c.want.kind == LONG) {
      EXPECT_EQ(18, parsed[0].value_mask);
      EXPECT_EQ(c.want.l, parsed[0].l);
    } else {
      EXPECT_EQ(9, parsed[0].value_mask);
      EXPECT_EQ(c.want.d, parsed[0].d);
    }
  }
}

struct PackedCase {
  const char* name;
  uint32_t field;
  std::string block;
  std::vector<Outcome> elements;  // empty with failed: the parse fails
  bool failed;
};

std::string le32(uint32_t v) { return std::string(reinterpret_cast<const char*>(&v), 4); }
std::string le64(uint64_t v) { return std::string(reinterpret_cast<const char*>(&v), 8); }
std::string f32(float v) {
  uint32_t bits;
  std::memcpy(&bits, &v, 4);
  return le32(bits);
}
std::string f64(double v) {
  uint64_t bits;
  std::memcpy(&bits, &v, 8);
  return le64(bits);
}
std::string varints(std::initializer_list<uint64_t> values) { return wire::packedVarints(values); }

TEST(ParserDecode, PackedBlocksGiveOneEntryPerElement) {
  const uint64_t m1 = ~uint64_t{0};
  const std::vector<PackedCase> cases = {
      {"double", 21, f64(1.5) + f64(-2.0), {asDouble(1.5), asDouble(-2.0)}, false},
      {"float", 22, f32(0.5f) + f32(-1.5f), {asDouble(0.5), asDouble(-1.5)}, false},
      {"int64", 23, varints({1, m1, 300}), {asLong(1), asLong(-1), asLong(300)}, false},
      {"uint64", 24, varints({uint64_t{1} << 63}), {asLong(INT64_MIN)}, false},
      {"int32", 25, varints({m1, 0x180000001ull}), {asLong(-1), asLong(INT32_V)}, false},
      {"fixed64", 26, le64(m1) + le64(7), {asLong(-1), asLong(7)}, false},
      {"fixed32", 27, le32(0xFFFFFFFFu), {asLong(4294967295)}, false},
      {"bool", 28, varints({0, 1, 2}), {asLong(0), asLong(1), asLong(2)}, false},
      {"uint32", 33, varints({4294967296u}), {asLong(4294967296)}, false},
      {"enum", 34, varints({1, 99}), {asLong(1), asLong(99)}, false},
      {"sfixed32", 35, le32(0xFFFFFFFEu), {asLong(-2)}, false},
      {"sfixed64", 36, le64(m1 - 2), {asLong(-3)}, false},
      {"sint32", 37, varints({1, 4294967294u}), {asLong(-1), asLong(2147483647)}, false},
      {"sint64", 38, varints({m1, 2}), {asLong(INT64_MIN), asLong(1)}, false},
      {"empty block", 25, "", {}, false},
      // An element must end inside its block: a cut-off last varint, or a
      // block that is not a whole number of fixed elements, fails the parse
      // before any element of the field is stored.
      {"cut-off varint element", 25, varints({1, 2}) + "\x80", {}, true},
      {"fixed32 block of 5 bytes", 27, le32(1) + "\x01", {}, true},
      {"double block of 12 bytes", 21, f64(1.0) + le32(0), {}, true},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    const std::string body = wire::Body().str(c.field, c.block);
    Parsed parsed(type("AllTypes"), body);
    if (c.failed) {
      EXPECT_EQ(255, parsed.status());
      EXPECT_EQ(0u, parsed.size());
      continue;
    }
    ASSERT_EQ(0, parsed.status());
    ASSERT_EQ(c.elements.size(), parsed.size());
    for (uint32_t i = 0; i < parsed.size(); ++i) {
      const auto& e = parsed[i];
      EXPECT_EQ(parsed[0].hash, e.hash);
      EXPECT_EQ(0, parsed.offset(e.raw_bytes));
      EXPECT_EQ(body.size(), e.raw_bytes_length);
      EXPECT_EQ(i + 1 < parsed.size() ? i + 1 : INV, e.next_sibling);
      if (c.elements[i].kind == LONG) {
        EXPECT_EQ(18, e.value_mask);
        EXPECT_EQ(c.elements[i].l, e.l);
      } else {
        EXPECT_EQ(9, e.value_mask);
        EXPECT_EQ(c.elements[i].d, e.d);
      }
    }
  }
}

TEST(ParserDecode, PackedElementNeverReadsPastItsBlock) {
  // The block's last byte continues a varint into the next field's tag: the
  // element must not swallow it.
  const std::string body = wire::Body().tag(25, 2).raw(wire::fromHex("02 01 80")).varint(3, 1);
  Parsed parsed(type("AllTypes"), body);
  EXPECT_EQ(255, parsed.status());
  EXPECT_EQ(0u, parsed.size());

  // A block longer than its level fails.
  Parsed longBlock(type("AllTypes"), wire::Body().tag(25, 2).raw(wire::fromHex("05 01 02")));
  EXPECT_EQ(255, longBlock.status());
  EXPECT_EQ(0u, longBlock.size());
}

TEST(ParserDecode, PackedFieldMayArriveUnpackedAndTheOtherWayRound) {
  // Declared packed, sent as separate varints: ordinary occurrences.
  Parsed unpacked(type("AllTypes"), wire::Body().varint(25, 3).varint(25, 4));
  ASSERT_EQ(0, unpacked.status());
  ASSERT_EQ(2u, unpacked.size());
  EXPECT_EQ(3, unpacked[0].l);
  EXPECT_EQ(4, unpacked[1].l);
  EXPECT_EQ(3u, unpacked[0].raw_bytes_length);  // two-byte tag, one-byte value

  // Declared unpacked, sent as a block: one string entry holding the block.
  const std::string block = varints({1, 2, 3});
  Parsed packed(type("AllTypes"), wire::Body().str(40, block));
  ASSERT_EQ(0, packed.status());
  ASSERT_EQ(1u, packed.size());
  EXPECT_EQ(0, packed[0].value_mask);
  EXPECT_EQ(0, packed[0].type_hint);
  EXPECT_EQ(block, ptest::text(packed[0].string_rep, packed[0].string_rep_length));
}

}  // namespace

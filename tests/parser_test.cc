// The entry tree a parse builds: order, links, hashes, raw byte spans and
// values per field type and wire type, defaults, and what a failure leaves.
#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "module_fixture.h"
#include "wire.h"

namespace {

using tarn_test::dump;
using tarn_test::INV;
using tarn_test::Parsed;
using tarn_test::pathHash;
using tarn_test::value;
using wire::Body;
using wire::fromHex;

tarn_message_type_context type(const std::string& name) {
  return tarn_test::context("parser.proto", "tarn.ptest." + name);
}
// The values of all entries, "fail" when the parse failed storing nothing. A
// top-level entry must carry the whole body (its one field) and share the
// first entry's hash (packed elements and repeats).
std::string values(const Parsed& p, const std::string& body) {
  std::string out = p.status() == 0 ? "" : p.size() == 0 && p.status() == 255 ? "fail" : "status?";
  for (uint32_t i = 0; i < p.size(); ++i) {
    const auto& e = p[i];
    out += (i ? " " : "") + value(p, e);
    if (e.parent == INV &&
        (p.offset(e.raw_bytes) != 0 || e.raw_bytes_length != body.size() || e.hash != p[0].hash))
      out += "(raw or hash?)";
  }
  return out;
}

TEST(ParserTree, WorkedExampleGivesSixLinkedEntries) {
  // a = 5; n { s = "x" }; r = 1; r = 2; and n's default d = 7.
  Parsed parsed(type("M"), fromHex("08 05  12 03 0A 01 78  18 01  18 02"));
  EXPECT_EQ(0, parsed.status());
  EXPECT_EQ(
      "a =5 raw 0+2 up - down - next 1\n"
      "n {} raw 2+5 up - down 2 next 4\n"
      "s s78 raw 4+3 up 1 down - next 3\n"
      "d =7 raw - up 1 down - next -\n"
      "r =1 raw 7+2 up - down - next 5\n"
      "r =2 raw 9+2 up - down - next -\n",
      dump(parsed));
  EXPECT_EQ(6, parsed.offset(parsed[2].string_rep));
  EXPECT_EQ(pathHash({"r"}), parsed[5].hash);
  EXPECT_EQ(pathHash({"n", "s"}), parsed[2].hash);
  // Hashes continue the value set's base.
  tarn_host::ValueSet based(0x12345678u);
  ASSERT_EQ(0, tarn_test::parse(type("M"), Body().msg(2, Body().str(1, "x")), based));
  EXPECT_EQ(pathHash({"n", "s"}, 0x12345678u), based[1].hash);
}

// AllTypes numbers each singular field by its declared type (1..18), packed
// fields by 20 + type. Every row is sent with the same payloads: a varint
// 0x180000001, a fixed64 holding the double 1.5, a fixed32 holding the float
// -1.5, and the length-delimited 10 05 (as N: d = 5).
TEST(ParserDecode, EveryFieldTypeAgainstEveryWireType) {
  const std::string v = "=6442450945", f64 = "=4609434218613702656", f32 = "=3217031168";
  const std::string zz = "=-3221225473", s = "s10 05";  // zigzag of v; the payload as a string
  const struct {
    int type;
    std::string varint, fixed64, fixed32, length;
  } rows[] = {
      {1, "fail", "=d1.5", f32, s},
      {2, "fail", f64, "=d-1.5", s},
      {3, v, f64, f32, s},
      {4, v, f64, f32, s},
      {5, "=-2147483647", f64, f32, s},
      {6, "fail", f64, f32, s},
      {7, "fail", f64, f32, s},
      {8, v, f64, f32, s},
      {9, "fail", f64, f32, s},
      {10, "fail", f64, f32, s},
      {11, "fail", f64, f32, "{} =5"},
      {12, "fail", f64, f32, s},
      {13, v, f64, f32, s},
      {14, v, f64, f32, s},
      {15, "fail", f64, "=-1077936128", s},
      {16, "fail", f64, f32, s},
      {17, zz, f64, f32, s},
      {18, zz, f64, f32, s},
  };
  for (const auto& row : rows) {
    const uint32_t f = static_cast<uint32_t>(row.type);
    const std::pair<std::string, std::string> sent[] = {
        {Body().varint(f, 0x180000001ull), row.varint},
        {Body().fixed64(f, 0x3FF8000000000000ull), row.fixed64},
        {Body().fixed32(f, 0xBFC00000u), row.fixed32},
        {Body().str(f, fromHex("10 05")), row.length},
        {Body().tag(f, 3).raw(std::string(8, '\0')), "fail"},
        {Body().tag(f, 4).raw(std::string(8, '\0')), "fail"},
        {Body().tag(f, 6).raw(std::string(8, '\0')), "fail"},
        {Body().tag(f, 7).raw(std::string(8, '\0')), "fail"},
    };
    for (const auto& [body, want] : sent) {
      EXPECT_EQ(want, values(Parsed(type("AllTypes"), body), body))
          << "field type " << row.type << ": " << wire::hex(body);
      // A one-byte tag sent in two bytes (a redundant continuation byte)
      // names the same field, wire type and value.
      if (f >= 16) continue;
      const std::string padded =
          std::string(1, static_cast<char>(body[0] | 0x80)) + std::string(1, '\0') + body.substr(1);
      EXPECT_EQ(want, values(Parsed(type("AllTypes"), padded), padded))
          << "field type " << row.type << ": " << wire::hex(padded);
    }
  }
}
std::string le32(uint32_t v) { return std::string(reinterpret_cast<const char*>(&v), 4); }
std::string le64(uint64_t v) { return std::string(reinterpret_cast<const char*>(&v), 8); }

// Values at their edges, singular and packed (one entry per element, each
// carrying the whole field's bytes; no entry of a field that fails).
TEST(ParserDecode, ValueEdges) {
  const uint64_t m1 = ~uint64_t{0};
  const std::string nine(9, '\x80');
  const std::pair<std::string, std::string> cases[] = {
      {Body().varint(17, 1), "=-1"},  // sint32
      {Body().varint(17, 4294967294u), "=2147483647"},
      {Body().varint(18, m1), "=-9223372036854775808"},                // sint64
      {Body().tag(5, 0).raw(wire::varintBytes(m1)), "=-1"},            // int32 in ten bytes
      {Body().varint(5, 0xFFFFFFFFu), "=-1"},                          // int32 in five bytes
      {Body().tag(3, 0).raw(wire::varintBytes(m1)), "=-1"},            // int64
      {Body().varint(13, 4294967296u), "=4294967296"},                 // uint32 keeps bit 32
      {Body().varint(8, 2), "=2"},                                     // bool
      {Body().f32(2, 0.1f), "=d0.10000000149011612"},                  // float widened
      {Body().fixed32(5, 0xFFFFFFFFu), "=4294967295"},                 // int32 as fixed32: unsigned
      {Body().fixed64(5, m1), "=-1"},                                  // int32 as fixed64
      {Body().fixed32(15, 0xFFFFFFFEu), "=-2"},                        // sfixed32
      {Body().tag(3, 0).raw(nine + "\x80\x01"), "=0"},                 // an 11th byte is dropped
      {Body().tag(4, 0).raw(nine + "\x7F"), "=-9223372036854775808"},  // the 10th keeps a bit
      {Body().tag(7, 5).raw("\x01\x01\x01"), "fail"},
      {Body().tag(6, 1).raw(std::string(7, '\x01')), "fail"},
      {Body().tag(9, 2).raw(fromHex("03 61 62")), "fail"},
      {Body().str(37, wire::packedVarints({1, 4})), "=-1 =2"},  // packed sint32
      {Body().str(25, wire::packedVarints({m1, 0x180000001ull})), "=-1 =-2147483647"},
      {Body().str(22, le32(0x3F000000u) + le32(0xBFC00000u)), "=d0.5 =d-1.5"},
      {Body().str(27, le32(0xFFFFFFFFu)), "=4294967295"},
      {Body().str(36, le64(m1 - 2)), "=-3"},
      {Body().str(25, fromHex("01 02 80")), "fail"},               // cut-off element
      {Body().str(27, le32(1) + "\x01"), "fail"},                  // not a whole number of elements
      {Body().tag(25, 2).raw(fromHex("02 01 80 18 01")), "fail"},  // element runs into a tag
      {Body().str(40, fromHex("01 02 03")), "s01 02 03"},          // unpacked field sent packed
  };
  for (const auto& [body, want] : cases)
    EXPECT_EQ(want, values(Parsed(type("AllTypes"), body), body)) << wire::hex(body);
  // Declared packed, sent unpacked: ordinary occurrences.
  Parsed unpacked(type("AllTypes"), Body().varint(25, 3).varint(25, 4));
  EXPECT_EQ("p_int32 =3 raw 0+3 up - down - next 1\np_int32 =4 raw 3+3 up - down - next -\n",
            dump(unpacked));
}

// Length prefixes of one, two and three bytes, minimal or padded, far from
// the end of the body or close to it, for strings and nested messages: each
// payload starts right after its prefix and the entry spans tag, prefix and
// payload. A prefix cut off by the end reads as 0; one running past the end
// fails.
TEST(ParserDecode, LengthPrefixesOfEveryWidth) {
  const std::string trailer = fromHex("28 01");  // t_int32 = 1
  const struct {
    const char* name;
    std::string prefix;
    size_t payload;    // bytes after the prefix
    bool withTrailer;  // another field after the payload
    long length;       // the string's length, -1: the parse fails
  } cases[] = {
      {"one byte", fromHex("7F"), 127, true, 127},
      {"two bytes", fromHex("80 01"), 128, true, 128},
      {"two bytes, last field", fromHex("C8 01"), 200, false, 200},
      {"two bytes, widest", fromHex("FF 7F"), 16383, true, 16383},
      {"three bytes", fromHex("80 80 01"), 16384, false, 16384},
      {"two bytes padded, near the end", fromHex("85 00"), 5, false, 5},
      {"two bytes padded, far from the end", fromHex("85 00"), 5, true, 5},
      {"three bytes padded", fromHex("83 80 00"), 3, true, 3},
      {"two bytes past the end", fromHex("C8 01"), 199, false, -1},
      {"two bytes past the end, field after", fromHex("C8 01"), 197, true, -1},
      {"cut off by the end", fromHex("80"), 0, false, 0},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    const std::string payload(c.payload, 'x');
    const std::string field = fromHex("4A") + c.prefix + payload;  // t_string
    const std::string body = c.withTrailer ? field + trailer : field;
    Parsed p(type("AllTypes"), body);
    if (c.length < 0) {
      EXPECT_EQ("fail", values(p, body));
      continue;
    }
    ASSERT_EQ(0, p.status());
    ASSERT_EQ(c.withTrailer ? 2u : 1u, p.size());
    EXPECT_EQ(static_cast<long>(1 + c.prefix.size()), p.offset(p[0].string_rep));
    EXPECT_EQ(static_cast<uint32_t>(c.length), p[0].string_rep_length);
    EXPECT_EQ(0, p.offset(p[0].raw_bytes));
    EXPECT_EQ(field.size(), p[0].raw_bytes_length);
    if (c.withTrailer) {
      EXPECT_EQ("=1", value(p, p[1]));
    }

    // The same prefix in front of a nested message N whose one field s fills
    // it: the message entry spans the field, s starts after N's own prefix.
    if (c.payload < 2 || c.payload - 2 >= 128) continue;
    const std::string inner = fromHex("0A") + std::string(1, static_cast<char>(c.payload - 2)) +
                              std::string(c.payload - 2, 'y');
    const std::string message = fromHex("5A") + c.prefix + inner;  // t_message
    const std::string nested = c.withTrailer ? message + trailer : message;
    Parsed n(type("AllTypes"), nested);
    ASSERT_EQ(0, n.status());
    // t_message, its s and the default of d, then the trailer.
    ASSERT_EQ(c.withTrailer ? 4u : 3u, n.size());
    EXPECT_EQ(message.size(), n[0].raw_bytes_length);
    EXPECT_EQ(0u, n[1].parent);
    EXPECT_EQ(static_cast<long>(1 + c.prefix.size()), n.offset(n[1].raw_bytes));
    EXPECT_EQ(static_cast<long>(3 + c.prefix.size()), n.offset(n[1].string_rep));
    EXPECT_EQ(c.payload - 2, n[1].string_rep_length);
  }
}

// Varint values of every length, with another field behind them (so that the
// value is read from a word with room to spare) and as the last bytes of the
// body: each reads the same and the entry spans its tag and value exactly.
// Then as the last field of a nested message with the body going on after
// it, whole and cut off by the message's end: the bytes after the message
// (which would end the varint) are never taken into it.
TEST(ParserDecode, VarintValuesOfEveryLength) {
  const std::string trailer = fromHex("28 01");  // t_int32 = 1
  std::vector<std::pair<std::string, uint64_t>> values;
  for (int k = 1; k <= 9; ++k)  // the smallest value of k bytes
    values.emplace_back(wire::varintBytes(uint64_t{1} << (7 * (k - 1))),
                        uint64_t{1} << (7 * (k - 1)));
  values.emplace_back(wire::varintBytes(uint64_t{1} << 63), uint64_t{1} << 63);
  values.emplace_back(fromHex("FF FF FF FF FF FF FF FF 7F"), ~uint64_t{0} >> 1);
  values.emplace_back(fromHex("80 80 80 80 80 80 80 80 01"), uint64_t{1} << 56);
  values.emplace_back(fromHex("80 80 80 80 80 80 80 80 80 01"), uint64_t{1} << 63);
  values.emplace_back(fromHex("81 80 80 80 80 80 80 80 80 80 01"), 1);  // 11th byte dropped
  for (const auto& [encoding, number] : values) {
    SCOPED_TRACE(wire::hex(encoding));
    const std::string field = fromHex("18") + encoding;  // t_int64
    for (const bool withTrailer : {false, true}) {
      const std::string body = withTrailer ? field + trailer : field;
      Parsed p(type("AllTypes"), body);
      ASSERT_EQ(0, p.status());
      ASSERT_EQ(withTrailer ? 2u : 1u, p.size());
      EXPECT_EQ("=" + std::to_string(static_cast<int64_t>(number)), value(p, p[0]));
      EXPECT_EQ(field.size(), p[0].raw_bytes_length);
      if (withTrailer) {
        EXPECT_EQ("=1", value(p, p[1]));
        EXPECT_EQ(static_cast<long>(field.size()), p.offset(p[1].raw_bytes));
      }
    }

    // Node: child { v = the value } v = 1, then child { v cut off } v = 1.
    // The int32 v keeps the low 32 bits; a cut-off value reads as 0 and
    // spans what is left of its message.
    const std::string after = fromHex("10 01");
    for (const bool cut : {false, true}) {
      const std::string v = fromHex("10") + encoding.substr(0, encoding.size() - (cut ? 1 : 0));
      const std::string body =
          fromHex("0A") + std::string(1, static_cast<char>(v.size())) + v + after;
      Parsed n(type("Node"), body);
      ASSERT_EQ(0, n.status());
      ASSERT_EQ(3u, n.size());
      const int32_t low = cut ? 0 : static_cast<int32_t>(static_cast<uint32_t>(number));
      EXPECT_EQ("=" + std::to_string(low), value(n, n[1]));
      EXPECT_EQ(2, n.offset(n[1].raw_bytes));
      EXPECT_EQ(v.size(), n[1].raw_bytes_length);
      EXPECT_EQ("=1", value(n, n[2]));
      EXPECT_EQ(static_cast<long>(body.size() - after.size()), n.offset(n[2].raw_bytes));
    }
  }
}

// Wide: field fI has number I + 1 and default 100 + I; sent fields carry 1000 + I.
// Defaults follow the present fields, range by range in the order the omitted
// ranges were made (each split appends its upper part), then the trailing fields.
TEST(ParserDefaults, OmittedRangesOrderTheDefaults) {
  auto from = [](int first, int last, int step = 1) {
    std::vector<int> out;
    for (int i = first; step > 0 ? i <= last : i >= last; i += step) out.push_back(i);
    return out;
  };
  auto join = [](std::vector<int> a, const std::vector<int>& b) {
    a.insert(a.end(), b.begin(), b.end());
    return a;
  };
  const struct {
    const char* name;
    std::vector<int> sent;      // field indexes in wire order
    std::vector<int> defaults;  // field indexes of the defaults, in stored order
  } cases[] = {
      {"in order, no gaps", from(0, 39), {}},
      {"3 then 1", {3, 1}, join({0, 2}, from(4, 39))},
      {"2 then 0", {2, 0}, join({1}, from(3, 39))},
      {"repeated occurrence changes nothing", {1, 1, 4}, join({0, 2, 3}, from(5, 39))},
      {"split at a range start", {5, 0, 1}, join({2, 3, 4}, from(6, 39))},
      {"runs of one field below and at the last",
       {5, 2, 2, 2, 5, 5, 20, 20, 0},
       join({1, 3, 4}, join(from(6, 19), from(21, 39)))},
      // 16 gaps stay in the inline list, 17 move it to the heap.
      {"16 gaps", from(1, 31, 2), join(from(0, 30, 2), from(32, 39))},
      {"17 gaps", from(1, 33, 2), join(from(0, 32, 2), from(34, 39))},
      {"20 ranges from splits", from(39, 1, -2), join({0}, from(38, 2, -2))},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    Body body;
    for (int i : c.sent) body.varint(static_cast<uint32_t>(i + 1), static_cast<uint64_t>(1000 + i));
    Parsed parsed(type("Wide"), body);
    ASSERT_EQ(0, parsed.status());
    ASSERT_EQ(c.sent.size() + c.defaults.size(), parsed.size());
    for (size_t k = 0; k < parsed.size(); ++k) {
      const auto& e = parsed[static_cast<uint32_t>(k)];
      const bool isDefault = k >= c.sent.size();
      const int index = isDefault ? c.defaults[k - c.sent.size()] : c.sent[k];
      EXPECT_EQ("f" + std::to_string(index), tarn_test::text(e.tag_bytes, e.tag_length)) << k;
      EXPECT_EQ((isDefault ? 100 : 1000) + index, e.l) << k;
      EXPECT_EQ(isDefault, e.raw_bytes == nullptr) << k;
    }
  }
}

TEST(ParserDefaults, EmptyNestedMessageHoldsItsDefaultsAbsentOneNothing) {
  EXPECT_EQ(
      "r =1 raw 0+2 up - down - next 1\n"
      "n {} raw 2+2 up - down 2 next 3\n"
      "d =7 raw - up 1 down - next -\n"
      "a =2 raw 4+2 up - down - next -\n",
      dump(Parsed(type("M"), Body().varint(3, 1).msg(2, Body()).varint(1, 2))));
  EXPECT_EQ("a =2 raw 0+2 up - down - next -\n", dump(Parsed(type("M"), Body().varint(1, 2))));
}

TEST(ParserTree, SparseNumbersOutOfDeclarationOrder) {
  const struct {
    const char* name;
    std::string body;
    std::string tree;  // dump(), or "" for a failed parse that stored nothing
  } cases[] = {
      {"every field, nested defaults",
       Body().varint(536870911, 3).varint(1, 4).msg(70000, Body().varint(1, 9)),
       "big =3 raw 0+6 up - down - next 1\n"
       "one =4 raw 6+2 up - down - next 2\n"
       "next {} raw 8+6 up - down 3 next 5\n"
       "one =9 raw 12+2 up 2 down - next 4\n"
       "mid S6D raw - up 2 down - next -\n"
       "mid S6D raw - up - down - next -\n"},
      {"declared last first", Body().msg(70000, Body()).str(5000, "z"),
       "next {} raw 0+4 up - down 1 next 2\n"
       "mid S6D raw - up 0 down - next -\n"
       "mid s7A raw 4+5 up - down - next -\n"},
      {"number between two fields", Body().varint(2, 1), ""},
      {"just below a field", Body().varint(4999, 1), ""},
      {"just below the largest", Body().varint(536870910, 1), ""},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    Parsed parsed(type("Sparse"), c.body);
    EXPECT_EQ(c.tree.empty() ? 255 : 0, parsed.status());
    EXPECT_EQ(c.tree, dump(parsed));
  }
}

// Every entry's hash recomputed through the host's own functions from its
// parent's hash (the set's base at the top) and its name.
void expectPathHashes(const Parsed& parsed_) {
  std::vector<uint32_t> expected;
  for (uint32_t i = 0; i < parsed_.size(); ++i) {
    const auto& e = parsed_[i];
    const uint32_t seed = e.parent == INV
                              ? tarn_host::default_base_hash
                              : tarn_message_xpath_hash_add_separator(expected.at(e.parent));
    expected.push_back(tarn_message_xpath_hash_string(e.tag_bytes, e.tag_length, seed));
    EXPECT_EQ(expected.back(), e.hash) << i;
  }
}

// Hashes of the same name under the same parent path repeat within a parse
// (members of repeated messages, repeated fields); every entry must still get
// the hash of its own path: a binary tree of repeated members under a chain
// of single ones, so that names meet many different parent paths.
TEST(ParserTree, EveryHashFollowsItsPath) {
  std::function<Body(int)> tree = [&](int depth) {
    Body b;
    b.varint(1, 1).varint(1, 2).varint(536870911, 3);
    if (depth > 0) b.msg(6, tree(depth - 1)).msg(6, tree(depth - 1));
    b.str(5000, "x");
    return b;
  };
  Body chain = tree(6);
  for (int depth = 0; depth < 40; ++depth) chain = Body().varint(1, 4).msg(70000, chain);
  Parsed parsed(type("Sparse"), chain);
  ASSERT_EQ(0, parsed.status());
  // Each chain level: one, next and the default of mid; each tree node: two
  // of one, big and mid, and every node but the root is a `many` entry.
  ASSERT_EQ(40u * 3 + 127 * 4 + 126, parsed.size());
  expectPathHashes(parsed);
}

// A parse keeps the hashes of a context's first 256 fields only; all later
// fields share one place that must never answer. Members of a repeated
// message alternate two such fields (and one early field) under the same and
// under different parent paths.
TEST(ParserTree, HashesOfFieldsBeyondTheKeptOnesFollowTheirPaths) {
  tarn_test::TempDir dir;
  const std::string package = tarn_test::uniqueName("wide");
  std::string schema = "syntax = \"proto2\";\npackage " + package + ";\nmessage Wide {\n";
  for (int n = 1; n <= 300; ++n)
    schema += "  optional int32 f" + std::to_string(n) + " = " + std::to_string(n) + ";\n";
  schema += "  repeated Wide many = 301;\n}\n";
  dir.write(package + ".proto", schema);
  tarn_message_type_context context =
      tarn_test::makeContext(dir.path(), package + ".proto", package + ".Wide");
  ASSERT_NE(nullptr, context);
  Body leaf = Body().varint(260, 1).varint(290, 2).varint(1, 3).varint(290, 4).varint(260, 5);
  Body middle = Body().msg(301, leaf).varint(290, 6).msg(301, leaf).varint(260, 7);
  Body body = Body().varint(290, 8).msg(301, middle).msg(301, leaf).varint(260, 9);
  {
    Parsed parsed(context, body);
    ASSERT_EQ(0, parsed.status());
    // Four at the top, four in the middle member, five in each of three leaves.
    ASSERT_EQ(4u + 4 + 3 * 5, parsed.size());
    expectPathHashes(parsed);
  }
  tarn_test::api().destroy_context(context);
}

TEST(ParserTree, FailuresKeepWhatWasStoredBefore) {
  const struct {
    const char* name;
    std::string body;
    uint32_t entries;  // stored before the parse stopped
  } cases[] = {
      {"unknown top-level field", Body().varint(1, 5).varint(9, 1).varint(3, 1), 1},
      // n fails after s: no default d, nothing after n.
      {"unknown field inside nested",
       Body().varint(1, 5).msg(2, Body().str(1, "x").varint(7, 1)).varint(3, 1), 3},
      {"group start", Body().varint(1, 5).tag(3, 3).varint(3, 1), 1},
      {"wire type 6", Body().varint(1, 1).tag(1, 6), 1},
      {"cut-off tag", Body().varint(1, 5).raw("\x80"), 1},
      {"field number 0", fromHex("00 01"), 0},
      {"field number beyond 32 bits", wire::varintBytes(~uint64_t{0} << 3), 0},
      {"length past the end", Body().varint(1, 5).raw(fromHex("12 05 0A 01 78")), 1},
      {"huge length", fromHex("12") + wire::varintBytes(~uint64_t{0}), 0},
      {"nested length past its level", Body().msg(2, Body().raw(fromHex("0A 09 78"))), 1},
  };
  for (const auto& c : cases) {
    Parsed parsed(type("M"), c.body);
    EXPECT_EQ(255, parsed.status()) << c.name;
    EXPECT_EQ(c.entries, parsed.size()) << c.name;
  }
}

}  // namespace

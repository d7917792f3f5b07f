// tarnpb's refusal diagnosis: the exact explanation for each way a body is
// refused, and agreement with the module's verdict (a fault found exactly when
// the module refuses) over damaged real and random bodies.
#ifdef TARNPB_PATH

#include <gtest/gtest.h>

#include <fstream>
#include <random>

#include "diagnose.h"
#include "module_fixture.h"
#include "random_message.h"
#include "wire.h"

namespace {

using wire::Body;
using wire::fromHex;

const google::protobuf::Descriptor* sample() {
  return tarn_test::TestSchema::get("sample.proto").type("tarn.test.Sample");
}

TEST(ToolDiagnose, EachRefusalNamesOffsetPathAndReason) {
  const struct {
    std::string body;
    std::string text;
  } cases[] = {
      {Body().varint(1, 7).varint(9, 1),
       "at byte 2, #9 (field 9 of tarn.test.Sample): not declared, and above the type's highest "
       "field number (7): the body looks written with a newer schema"},
      {Body().msg(5, Body().varint(1, 1)),
       "at byte 2, inner.label (field 1 of tarn.test.Inner): wire type 0 (varint) cannot carry a "
       "string field"},
      {Body().varint(1, 1).raw(fromHex("2A 03 0A 05 41")),
       "at byte 4, inner.label (field 1 of tarn.test.Inner): its length 5 runs past the end of "
       "inner (1 byte left)"},
      {fromHex("29 01 02 03"),
       "at byte 0, inner (field 5 of tarn.test.Sample): its 8-byte value is cut off by the end "
       "of the body after 3 bytes"},
      {fromHex("35 01 02"),
       "at byte 0, ratio (field 6 of tarn.test.Sample): its 4-byte value is cut off by the end "
       "of the body after 2 bytes"},
      {fromHex("12 01 41 23"),
       "at byte 3, deltas[0] (field 4 of tarn.test.Sample): wire type 3 (group start) is not "
       "read by the module"},
      {fromHex("22 02 02 04 22 02 01 81"),
       "at byte 4, deltas[1] (field 4 of tarn.test.Sample): the packed block of 2 bytes ends "
       "inside a varint"},
      {fromHex("22 05 02"),
       "at byte 0, deltas[0] (field 4 of tarn.test.Sample): the packed block's length 5 runs "
       "past the end of the body (1 byte left)"},
      {fromHex("08 07 80"),
       "at byte 2, #0 (field 0 of tarn.test.Sample): the tag is cut off by the end of the body "
       "(1 byte left)"},
      {fromHex("2A 01 FF"),
       "at byte 2, inner.#0 (field 0 of tarn.test.Inner): the tag is cut off by the end of "
       "inner (1 byte left)"},
      {fromHex("0F"),
       "at byte 0, id (field 1 of tarn.test.Sample): wire type 7 (no such wire type) is not read "
       "by the module"},
      {fromHex("00"),
       "at byte 0, #0 (field 0 of tarn.test.Sample): no field can have this number: the bytes "
       "are not a field's tag"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(wire::hex(c.body));
    tarn_host::ValueSet set;
    ASSERT_EQ(TARN_FAILURE, tarn_test::parse(tarn_test::context("sample.proto", "tarn.test.Sample"),
                                             c.body, set));
    EXPECT_EQ(c.text, tarnpb::diagnose(sample(), c.body).text());
  }
}

TEST(ToolDiagnose, NestingLimitAndSchemaHints) {
  // 101 nested Nodes: the innermost is one level past the module's limit.
  const auto* node = tarn_test::TestSchema::get("deep.proto").type("tarn.deep.Node");
  const std::string deep = wire::nestedChain(101);
  std::string path = "child";
  for (int i = 1; i < 101; ++i) path += ".child";
  EXPECT_EQ("at byte 237, " + path +
                " (field 1 of tarn.deep.Node): nesting deeper than 100 messages, the module's "
                "limit",
            tarnpb::diagnose(node, deep).text());
  EXPECT_FALSE(tarnpb::diagnose(node, wire::nestedChain(100)).found);

  // A reserved number, an extension, a gap below the highest number.
  const auto* set = tarn_test::TestSchema::get("google/protobuf/descriptor.proto", "/usr/include")
                        .type("google.protobuf.FileDescriptorSet");
  EXPECT_EQ(
      "at byte 4, file[0].options.#38 (field 38 of google.protobuf.FileOptions): not declared: "
      "the schema reserves this number, for a field it removed",
      tarnpb::diagnose(set, fromHex("0A 05 42 03 B0 02 01")).text());
  EXPECT_EQ(
      "at byte 4, file[0].options.#1000 (field 1000 of google.protobuf.FileOptions): an "
      "extension, which the module does not read",
      tarnpb::diagnose(set, fromHex("0A 06 42 04 C0 3E 01 00")).text());
  EXPECT_EQ(
      "at byte 0, #2 (field 2 of google.protobuf.FileDescriptorSet): not declared, and "
      "above the type's highest field number (1): the body looks written with a newer "
      "schema",
      tarnpb::diagnose(set, fromHex("10 01")).text());
  EXPECT_EQ("the module's parser, run by the tool, accepts the body",
            tarnpb::diagnose(set, fromHex("0A 02 42 00 0A 00")).text());
}

// Every cut and every single-byte change of real and random bodies: the walk
// finds a fault exactly when the module refuses.
TEST(ToolDiagnose, AgreesWithTheModuleOnDamagedBodies) {
  struct Source {
    const char* dir;
    const char* file;
    const char* type;
    std::string body;
  };
  std::vector<Source> sources;
  const auto* rich = tarn_test::TestSchema::get().type("tarn.test.Rich");
  for (uint64_t seed = 1; seed <= 6; ++seed)
    sources.push_back({"", "rich.proto", "tarn.test.Rich", tarn_test::randomBody(rich, seed)});
  if (!tarn_test::corpusDir().empty()) {
    for (const char* name : {"golden_message", "golden_packed_fields_message"}) {
      std::ifstream in(tarn_test::corpusDir() + "/" + name, std::ios::binary);
      sources.push_back(
          {"corpus", "google/protobuf/unittest.proto",
           name[7] == 'p' ? "protobuf_unittest.TestPackedTypes" : "protobuf_unittest.TestAllTypes",
           std::string{std::istreambuf_iterator<char>(in), {}}});
    }
  }
  std::mt19937_64 rng(16);
  int outcomes[2] = {0, 0};
  for (const auto& s : sources) {
    const std::string dir = *s.dir ? tarn_test::corpusDir() : tarn_test::dataDir();
    const auto* type = tarn_test::TestSchema::get(s.file, dir).type(s.type);
    const auto context = tarn_test::context(s.file, s.type, dir);
    std::vector<std::string> damaged;
    for (size_t n = 0; n < s.body.size(); ++n) {
      damaged.push_back(s.body.substr(0, n));
      std::string changed = s.body;
      changed[n] = static_cast<char>(rng());
      damaged.push_back(changed);
    }
    for (const auto& body : damaged) {
      tarn_host::ValueSet set;
      const bool refused = tarn_test::parse(context, body, set) != TARN_SUCCESS;
      const tarnpb::Refusal r = tarnpb::diagnose(type, body);
      ASSERT_EQ(refused, r.found) << s.type << " " << wire::hex(body) << "\n" << r.text();
      if (r.found) {
        EXPECT_LT(r.offset, body.size());
      }
      ++outcomes[refused];
    }
  }
  EXPECT_GT(outcomes[0], 0);
  EXPECT_GT(outcomes[1], 0);
}

}  // namespace

#endif

// End-to-end runs of the built command-line host, as a user runs it: standard
// output, the last line of standard error and the exit status (0 success,
// 1 refused by the module or the schema, 2 usage error).
#ifdef TARNPB_PATH

#include <gtest/gtest.h>

#include "module_fixture.h"
#include "tool_run.h"
#include "wire.h"

namespace {

using namespace tool_run;

TEST(Tool, BadInputsGiveOneClearLineAndTheirStatus) {
  const std::string missing = "/nonexistent/tarnpb-test.bin";
  expectLastLines({
      {"frobnicate", 2, "tarnpb: unknown command 'frobnicate' (see tarnpb --help)"},
      {"parse --bogus x", 2, "tarnpb parse: unknown option --bogus (see tarnpb parse --help)"},
      // What was typed is echoed on the one line, its control bytes escaped.
      {"parse \"--bo$(printf '\\nx')gus\" x", 2,
       "tarnpb parse: unknown option --bo\\x0axgus (see tarnpb parse --help)"},
      {"parse x", 2, "tarnpb parse: a schema is needed: --proto FILE"},
      {"parse " + book, 2, "tarnpb parse: missing argument: tarnpb parse [options] MESSAGE"},
      {"parse " + book + missing, 2,
       "tarnpb parse: cannot read " + missing + ": No such file or directory"},
      {"parse -q -I " + quote(examples) + " --proto market_data.proto --type tarn.example.Nope x",
       1,
       "tarnpb parse: the module refused the schema: tarn_protobuf failed to locate type "
       "tarn.example.Nope specified in the TARN message type configuration."},
      {"parse --module /nonexistent/module.so " + book + "x", 1,
       "tarnpb parse: cannot load module /nonexistent/module.so: /nonexistent/module.so: cannot "
       "open shared object file: No such file or directory"},
      {"parse --json " + sample + file(wire::Body().varint(1, 7).varint(9, 1)), 1,
       "tarnpb parse: the module refused the message (status 255) after storing 1 entry; at byte "
       "2, #9 (field 9 of tarn.test.Sample): not declared, and above the type's highest field "
       "number (7): the body looks written with a newer schema"},
      {"parse -d " + sample + file(wire::fromHex("02 08 07 04 08 07 48 01")), 1,
       "tarnpb parse: the module refused 1 of 2 messages; the first is message 2, at byte 4 of "
       "the stream; at byte 2, #9 (field 9 of tarn.test.Sample): not declared, and above the "
       "type's highest field number (7): the body looks written with a newer schema"},
      {"merge " + sample + file(wire::fromHex("08 07")) + " " + file(wire::fromHex("2A 01 FF")), 1,
       "tarnpb merge: the module refused the update message (status 255); at byte 2, inner.#0 "
       "(field 0 of tarn.test.Inner): the tag is cut off by the end of inner (1 byte left)"},
      {"decode " + book + quote(examples + "/market_data.proto"), 1,
       "tarnpb decode: " + examples +
           "/market_data.proto is not a valid tarn.example.BookSnapshot in wire format; the input "
           "is text: tarnpb encode turns text format into wire format"},
  });
}

TEST(Tool, ParseJsonNamesEveryEntry) {
  const ToolRun run = tarnpb("parse --json " + sample +
                             file(wire::Body().varint(1, 150).msg(5, wire::Body().str(1, "x"))));
  ASSERT_EQ(0, run.status) << run.lastError;
  auto entry = [](std::string head, std::initializer_list<std::string> path, std::string links,
                  std::string kind, std::string tail) {
    return R"({"index":)" + head + R"(","hash":)" + std::to_string(tarn_test::pathHash(path)) +
           links + R"(,"kind":")" + kind + R"(",)" + tail + R"("default":false,"required":false,)";
  };
  EXPECT_EQ(
      R"({"type":"tarn.test.Sample","bytes":8,"status":0,"partial":false,"entries":[)" +
          entry(R"(0,"name":"id","path":"id)", {"id"},
                R"(,"depth":0,"parent":null,"first_child":null,"next_sibling":1)", "int",
                R"("value":150,)") +
          R"("raw":"089601"},)" +
          entry(R"(1,"name":"inner","path":"inner)", {"inner"},
                R"(,"depth":0,"parent":null,"first_child":2,"next_sibling":null)", "message", "") +
          R"("raw":"2a030a0178"},)" +
          entry(R"(2,"name":"label","path":"inner.label)", {"inner", "label"},
                R"(,"depth":1,"parent":1,"first_child":null,"next_sibling":null)", "string",
                R"("value":"x",)") +
          R"("raw":"0a0178"})" + "]}\n",
      run.out);
}

// Later elements of a packed field name the first instead of repeating the
// block, so the JSON grows linearly with the field.
TEST(Tool, ParseJsonOfAPackedFieldIsLinear) {
  const ToolRun run = tarnpb("parse --json " + sample + file(wire::fromHex("22 03 02 04 06")));
  ASSERT_EQ(0, run.status) << run.lastError;
  const std::string head = R"({"index":)", hash = std::to_string(tarn_test::pathHash({"deltas"}));
  auto element = [&](int index, std::string next, int value, std::string raw) {
    return head + std::to_string(index) + R"(,"name":"deltas","path":"deltas","hash":)" + hash +
           R"(,"depth":0,"parent":null,"first_child":null,"next_sibling":)" + next +
           R"(,"kind":"int","value":)" + std::to_string(value) +
           R"(,"default":false,"required":false,)" + raw + "}";
  };
  EXPECT_EQ(R"({"type":"tarn.test.Sample","bytes":5,"status":0,"partial":false,"entries":[)" +
                element(0, "1", 1, R"("raw":"2203020406")") + "," +
                element(1, "2", 2, R"("raw_as":0)") + "," + element(2, "null", 3, R"("raw_as":0)") +
                "]}\n",
            run.out);

  size_t sizes[2];
  for (int n : {0, 1}) {
    std::string elements;
    for (int i = 0; i < (n ? 8000 : 2000); ++i) elements += wire::varintBytes(wire::zigzag(i));
    sizes[n] = tarnpb("parse --json " + sample + file(wire::Body().str(4, elements))).out.size();
  }
  EXPECT_LE(sizes[1], sizes[0] * 9 / 2) << sizes[0] << " then " << sizes[1];
}

TEST(Tool, TraceIsPassedOnByteForByteWithinItsCapacity) {
  const std::string body = file(wire::Body().varint(1, 150).str(2, std::string("a\0\"b", 4)));
  EXPECT_EQ(std::string("protobuf({\"id\":150,\"name\":\"a\0\"b\"})\n", 35),
            tarnpb("trace " + sample + body).out);
  // 15 bytes before the number and the 64 it demands.
  const std::string one = file(wire::Body().varint(1, 1));
  EXPECT_EQ("protobuf({\"id\":1})\n", tarnpb("trace --capacity 79 " + sample + one).out);
  const ToolRun cut = tarnpb("trace --capacity 78 " + sample + one);
  EXPECT_EQ(1, cut.status);
  EXPECT_EQ("protobuf({\"id\":\n", cut.out);
  EXPECT_EQ(
      "tarnpb trace: the module refused the trace (status 255) with 78 bytes of room; 15 "
      "bytes were written",
      cut.lastError);
}

TEST(Tool, MergeAndSerializeWriteTheModulesBytes) {
  using wire::Body;
  const std::string out = scratchPath("out.bin");
  const ToolRun merged = tarnpb("merge -o " + quote(out) + " " + sample +
                                file(Body().varint(1, 4).str(2, "b").msg(5, Body().str(1, "x"))) +
                                " " + file(Body().msg(5, Body().str(1, "y"))));
  EXPECT_EQ(0, merged.status) << merged.lastError;
  EXPECT_EQ("2A 03 0A 01 79 08 04 12 01 62", wire::hex(readFile(out)));

  const ToolRun rebuilt =
      tarnpb("serialize -o " + quote(out) + " --text " + sample +
             file(R"(id: 150 name: "ab" deltas: [-1, 2] inner { label: "x" } ratio: 0.25)"));
  EXPECT_EQ(0, rebuilt.status) << rebuilt.lastError;
  EXPECT_EQ("08 96 01 12 02 61 62 22 02 01 04 2A 83 80 80 00 0A 01 78 35 00 00 80 3E",
            wire::hex(readFile(out)));

  // A file with empty options, then a second file: the options go whole, so
  // the second file stays outside the first.
  const ToolRun files = tarnpb("serialize -q -o " + quote(out) +
                               " --proto /usr/include/google/protobuf/descriptor.proto --type "
                               "google.protobuf.FileDescriptorSet " +
                               file(wire::fromHex("0A 02 42 00 0A 00")));
  EXPECT_EQ(0, files.status) << files.lastError;
  EXPECT_EQ("0A 82 80 80 00 42 00 0A 00", wire::hex(readFile(out)));
  EXPECT_NE(std::string::npos,
            files.out.find(", 9 bytes written; libprotobuf reads the same message as the input\n"));

  // Fields out of number order: the rebuild differs from the input's bytes
  // but not from libprotobuf's reading of them.
  const ToolRun reordered =
      tarnpb("serialize -o " + quote(out) + " " + sample + file(Body().str(2, "b").varint(1, 4)));
  EXPECT_EQ(0, reordered.status) << reordered.lastError;
  EXPECT_NE(std::string::npos,
            reordered.out.find("bytes written; libprotobuf reads the same message as the input\n"))
      << reordered.out;
}

TEST(Tool, VersionNamesTheBuildsInUse) {
  const ToolRun run = tarnpb("--version");
  EXPECT_EQ(0, run.status);
  EXPECT_EQ("tarnpb 0.1.0\nmodule " + std::string(TARN_MODULE_PATH) + "\nlibprotobuf 3.21.12\n",
            run.out);
}

TEST(Tool, DemoRunsTheWholeCycle) {
  const ToolRun run = tarnpb("demo -q");
  EXPECT_EQ(0, run.status) << run.lastError;
  for (const char* piece :
       {"tarn.example.BookSnapshot, 121 bytes, 41 entries\n",
        "== the module's trace of it\nprotobuf({\"instrument\":{\"symbol\":\"ACME\",",
        "== merged by the module (delta publish)\n125 bytes: "})
    EXPECT_NE(std::string::npos, run.out.find(piece)) << piece;
}

}  // namespace

#endif

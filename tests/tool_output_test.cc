// What tarnpb prints is right: numbers as their declared type has them, long
// values whole on request, trace text safe on a terminal, each message of a
// stream, and a word on bodies that do not fit their schema. Its JSON is
// held to a JSON parser in tool_json_test.cc.
#ifdef TARNPB_PATH

#include <gtest/gtest.h>

#include "tool_run.h"
#include "wire.h"

namespace {

using namespace tool_run;
using wire::Body;

TEST(ToolOutput, ValuesShowAsTheirDeclaredType) {
  const struct {
    std::string args, body, line;
  } cases[] = {
      {book, Body().fixed64(2, ~uint64_t{0}).bytes(),
       "    0  0x909d507e  sequence  int      18446744073709551615          11 ff ff ff ff ff ff "
       "ff ff\n"},
      {sample, Body().f32(6, 1.5e-7f).bytes(),
       "    0  0x831687f9  ratio  double   1.5e-07                       35 b0 0f 21 34\n"},
      {sample, Body().varint(1, ~uint64_t{0}).bytes(),
       "    0  0x2e30163a  id     int      -1                            08 ff ff ff ff ff ff ff "
       "ff ff 01\n"},
  };
  for (const auto& c : cases) {
    const ToolRun run = tarnpb("parse " + c.args + file(c.body));
    EXPECT_EQ(0, run.status) << run.err;
    EXPECT_NE(std::string::npos, run.out.find(c.line)) << run.out;
  }
}

TEST(ToolOutput, TraceIsEscapedOnATerminalUnlessAskedOtherwise) {
  const std::string body = file(Body().str(2, std::string("a\x1b[2Jb", 6)).bytes());
  const std::string traced = "protobuf({\"name\":\"a\\x1b[2Jb\"})";
  // script(1) gives tarnpb a terminal.
  const std::string script =
      "script -qec " + quote(std::string(TARNPB_PATH) + " trace " + sample + body) + " /dev/null";
  std::FILE* pipe = ::popen(script.c_str(), "r");
  ASSERT_NE(nullptr, pipe);
  std::string out;
  char chunk[512];
  for (size_t n; (n = std::fread(chunk, 1, sizeof chunk, pipe)) != 0;) out.append(chunk, n);
  ::pclose(pipe);
  EXPECT_EQ(traced + "\r\n", out);
  EXPECT_EQ(traced + "\n", tarnpb("trace -e " + sample + body).out);
  EXPECT_EQ("protobuf({\"name\":\"a\x1b[2Jb\"})\n", tarnpb("trace " + sample + body).out);
}

TEST(ToolOutput, StreamsShowEachMessage) {
  const std::string stream = file(wire::fromHex("02 08 07 02 08 09"));
  const ToolRun parsed = tarnpb("parse -d " + sample + stream);
  EXPECT_EQ(0, parsed.status);
  EXPECT_EQ(0u, parsed.out.find("message 1: tarn.test.Sample, 2 bytes, 1 entry\n"));
  EXPECT_NE(std::string::npos,
            parsed.out.find("\nmessage 2: tarn.test.Sample, 2 bytes, 1 entry\n"));
  const size_t lastLine = parsed.out.rfind('\n', parsed.out.size() - 2) + 1;
  EXPECT_EQ(lastLine,
            parsed.out.find("parsed 2 messages (2 ok, 0 refused), 4 bytes, 2 entries in "));
  const ToolRun traced = tarnpb("trace -d " + sample + stream);
  EXPECT_EQ(0u, traced.out.find("protobuf({\"id\":7})\nprotobuf({\"id\":9})\ntraced 2 messages"));
  EXPECT_EQ(0u, tarnpb("parse -ds " + sample + stream).out.find("parsed 2 messages"));
}

TEST(ToolOutput, BodiesThatDoNotFitTheirSchemaAreNamed) {
  writeScratch("group.proto",
               "syntax = \"proto2\"; package g; message M { optional int32 a = 1; "
               "optional group Item = 2 { optional int32 b = 3; } }");
  expectLastLines({
      {"parse " + sample + file(Body().str(1, "x").bytes()), 0,
       "tarnpb parse: warning: at byte 0, id (field 1 of tarn.test.Sample, declared int32) "
       "arrives as wire type 2 (length-delimited), which an int32 never has: the body may not be "
       "a tarn.test.Sample"},
      {"parse " + sample + file("\xff\xff\xff\xff\x0f\x01\x02"), 1,
       "tarnpb parse: the module refused the message (status 255) after storing 0 entries; the "
       "bytes are not protobuf wire format: read without a schema, byte 0 of 7 starts no field "
       "(tarnpb raw shows what reads)"},
      {"trace " + sample + file("id: 7\n"), 0,
       "tarnpb trace: note: the input is text, not wire format: if it is protobuf text format, "
       "add --text (or name the file .txtpb)"},
      {"parse " + sample + file("id: 7\n"), 1,
       "tarnpb parse: the module refused the message (status 255) after storing 0 entries; the "
       "input is text, not wire format: if it is protobuf text format, add --text (or name the "
       "file .txtpb)"},
      {"trace -q -I " + quote(scratchPath("")) + " --proto group.proto " +
           file(wire::fromHex("08 01 13 18 05 14")),
       0,
       "tarnpb trace: note: item is a proto2 group, which the trace does not show as a "
       "structure: its start and end tags each leave the key \"item\" with nothing after the "
       "colon, and the fields inside it are looked up in the message around it, where a number it "
       "lacks ends that level of the trace"},
  });
}

// The schema-less view reads as protoc --decode_raw does, on real schemas'
// descriptor sets too.
TEST(ToolOutput, RawViewReadsAsProtocDecodeRaw) {
  if (std::system("protoc --version >/dev/null 2>&1") != 0) GTEST_SKIP() << "no protoc";
  const std::string set = scratchPath("set.pb");
  ASSERT_EQ(0, std::system(("protoc -I " + quote(examples) + " --include_imports -o " + quote(set) +
                            " market_data.proto")
                               .c_str()));
  const std::string bodies[] = {
      readFile(set),
      wire::fromHex("08 01 13 18 05 14 2A 00 35 00 00 80 3E 11 01 02 03 04 05 06 07 08"),
      Body().str(2, std::string("a\0\xC3\xA9\"'\\", 7)).varint(3, ~uint64_t{0}).bytes(),
  };
  for (const auto& body : bodies) {
    const std::string path = file(body);
    const std::string protoc = scratchPath("protoc.out");
    std::system(("protoc --decode_raw <" + path + " >" + quote(protoc)).c_str());
    const ToolRun run = tarnpb("raw " + path);
    EXPECT_EQ(0, run.status) << run.err;
    EXPECT_EQ(readFile(protoc), run.out);
  }
  const ToolRun bad = tarnpb("raw " + file("\x08"));
  EXPECT_EQ(1, bad.status);
  EXPECT_NE(std::string::npos,
            bad.lastError.find(" is not protobuf wire format: byte 0 of 1 starts no field"))
      << bad.lastError;
}

}  // namespace

#endif

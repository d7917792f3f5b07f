// tarnpb takes the command lines a protoc user writes, and a server's
// configuration verbatim; it suggests the name meant when one is misspelt.
#ifdef TARNPB_PATH

#include <gtest/gtest.h>
#include <unistd.h>

#include "tool_run.h"
#include "wire.h"

namespace {

using namespace tool_run;

const std::string value = " -t google.protobuf.Value ";
const std::string wkt = "/usr/include/google/protobuf";

TEST(ToolHabits, ProtocCommandLinesWork) {
  if (::access((wkt + "/struct.proto").c_str(), R_OK) != 0) GTEST_SKIP() << "no " << wkt;
  // number_value: 3
  const std::string number = file(wire::fromHex("11 00 00 00 00 00 00 08 40"));
  const std::string tree = "google.protobuf.Value, 9 bytes, 1 entry\n";
  const struct {
    std::string args;
    std::string outStart;
  } cases[] = {
      // A disk path under a search path, and the well-known types without one.
      {"parse -q -I /usr/include/ --proto " + wkt + "/struct.proto" + value + number, tree},
      {"parse -q --proto google/protobuf/struct.proto --type=google.protobuf.Value " + number,
       tree},
      // A server's configuration as it stands, a virtual directory included.
      {"parse -q --option 'ProtoPath=wkt;" + wkt +
           "' --option ProtoFile=wkt/struct.proto --option Type=google.protobuf.Value "
           "--option Type=google.protobuf.Struct " +
           number,
       tree},
  };
  for (const auto& c : cases) {
    const ToolRun run = tarnpb(c.args);
    EXPECT_EQ(0, run.status) << c.args << "\n" << run.err;
    EXPECT_EQ(c.outStart, run.out.substr(0, c.outStart.size())) << c.args;
  }
}

TEST(ToolHabits, TheToolSaysWhatAServerWouldNeed) {
  if (::access((wkt + "/struct.proto").c_str(), R_OK) != 0) GTEST_SKIP() << "no " << wkt;
  const ToolRun run =
      tarnpb("parse --proto google/protobuf/struct.proto" + value + file(wire::fromHex("")));
  EXPECT_EQ(0, run.status);
  EXPECT_NE(std::string::npos,
            run.err.find("\ntarnpb: note: google/protobuf/struct.proto is read from /usr/include, "
                         "which tarnpb searches by itself as protoc does; a server needs the "
                         "option ProtoPath=;/usr/include for it\n"))
      << run.err;
  const ToolRun verbatim =
      tarnpb("parse --option 'ProtoPath=feeds;/nonexistent/dir' " + value + file(""));
  EXPECT_EQ(2, verbatim.status);
  EXPECT_EQ(
      "tarnpb parse: --option gives the module's whole configuration: name the schema with "
      "--option ProtoPath=..., ProtoFile=..., Type=... instead of -I, --proto and --type",
      verbatim.lastError);
}

TEST(ToolHabits, ModuleByPlainFileName) {
  const std::string dir(TARN_MODULE_PATH, std::string(TARN_MODULE_PATH).rfind('/'));
  const std::string name = std::string(TARN_MODULE_PATH).substr(dir.size() + 1);
  const ToolRun run =
      tarnpb("parse --module " + name + " " + book + quote(examples + "/snapshot.txtpb"),
             "/dev/null", dir);
  EXPECT_EQ(0, run.status) << run.err;
}

TEST(ToolHabits, MistakesNameWhatWasMeant) {
  writeScratch("bad.proto", "syntax = \"proto3\";\nmessage A {\n  int32 x = 1\n}\n");
  const std::string data = " -q -I " + quote(std::string(TARN_SOURCE_DIR) + "/tests/data");
  expectLastLines({
      {"parse" + data + " --proto sample.proto -t tarn.test.Sampel x", 1,
       "tarnpb parse: the module refused the schema: tarn_protobuf failed to locate type "
       "tarn.test.Sampel specified in the TARN message type configuration. (did you mean "
       "tarn.test.Sample?)"},
      {"parse" + data + " --proto sample.proto -t tarn.test.Sample -t tarn.test.Nope x", 1,
       "tarnpb parse: the module refused the schema: tarn_protobuf failed to locate type "
       "tarn.test.Nope specified in the TARN message type configuration."},
      {"parse " + sample + "--find inner.labl " + file(""), 2,
       "tarnpb parse: --find inner.labl: tarn.test.Sample has no such field path (did you mean "
       "inner.label?)"},
      // Lines and columns counted from 1, as protoc counts them.
      {"parse -q -I " + quote(scratchPath("")) + " --proto bad.proto -t A x", 1,
       "tarnpb parse: the module refused the schema: bad.proto:4:1: Expected \";\"."},
      {"parse -q --proto /nowhere/x.proto -I /usr/include x", 2,
       "tarnpb parse: --proto /nowhere/x.proto lies under none of the --proto-path directories"},
  });
}

}  // namespace

#endif

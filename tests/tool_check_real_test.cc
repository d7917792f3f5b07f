// tarnpb check on pairs made from real schemas (descriptor.proto and the
// corpus's unittest.proto, edited at test time), on sample bodies, and its
// JSON and usage errors.
#ifdef TARNPB_PATH

#include <gtest/gtest.h>

#include "check_pairs.h"

namespace {

using namespace tarn_test::check_pairs;
using tarn_test::uniqueName;
using tool_run::quote;
using tool_run::readFile;
using tool_run::scratch;
using tool_run::tarnpb;

// Pairs made from real schemas: every occurrence of each edit is applied.
std::string editedAll(std::string text,
                      const std::vector<std::pair<std::string, std::string>>& edits) {
  for (const auto& e : edits) {
    size_t at = text.find(e.first);
    if (at == std::string::npos) return "edit not found: " + e.first;
    for (; at != std::string::npos; at = text.find(e.first, at + e.second.size()))
      text.replace(at, e.first.size(), e.second);
  }
  return text;
}

struct RealCase {
  const char* name;
  std::vector<std::pair<std::string, std::string>> edits;
  std::vector<std::string> expected;
  int status;
};

TEST(ToolCheck, EditedCopiesOfDescriptorProto) {
  const std::string file = "google/protobuf/descriptor.proto";
  const std::string original = readFile("/usr/include/" + file);
  if (original.empty()) GTEST_SKIP() << "no /usr/include/" << file;
  const RealCase cases[] = {
      {"a field renamed where its message is reached three times",
       {{"optional string json_name = 10;", "optional string json_key = 10;"}},
       {"field renamed: extension.json_key | subscribers, find sets, stored messages, traces | "
        "not safe without a coordinated switch",
        coordinated},
       1},
      {"packed turned off",
       {{"repeated int32 path = 1 [packed = true];", "repeated int32 path = 1;"}},
       {"packed changed: source_code_info.location.path | publishers, subscribers, stored "
        "messages, traces | publishers before servers",
        publishersFirst},
       1},
      {"an option added",
       {{"optional string java_package = 1;",
         "optional string java_package = 1;\n  optional string rollout_note = 60;"}},
       {"field added: options.rollout_note | publishers | servers before publishers", serversFirst},
       1},
      {"a recursive message type renamed",
       {{"message DescriptorProto {", "message MessageProto {"},
        {"repeated DescriptorProto ", "repeated MessageProto "}},
       {"message type renamed: message_type | nobody | safe in any order",
        "message type renamed: message_type.nested_type | nobody | safe in any order", any},
       0},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    const std::string dir = versions(file, original, editedAll(original, c.edits));
    const auto run = tarnpb("check -q -p " + file + " -t google.protobuf.FileDescriptorProto " +
                            quote(dir + "/old") + " " + quote(dir + "/new"));
    EXPECT_EQ(verdicts(run.out), c.expected) << run.out << run.lastError;
    EXPECT_EQ(run.status, c.status);
  }
  // Every place the renamed field's message is reached is named.
  const std::string dir = versions(file, original, editedAll(original, cases[0].edits));
  const auto run = tarnpb("check -q -p " + file + " -t google.protobuf.FileDescriptorProto " +
                          quote(dir + "/old") + " " + quote(dir + "/new"));
  EXPECT_NE(run.out.find("\n  also at: message_type.field.json_key, "
                         "message_type.extension.json_key\n"),
            std::string::npos)
      << run.out;
}

// The corpus's unittest.proto: the old version is the corpus itself, the new
// one an edited copy that finds the unedited imports in the corpus.
const std::string corpus = std::string(TARN_SOURCE_DIR) + "/../shared/corpus/protobuf-v21.12";
const std::string unittest = "google/protobuf/unittest.proto";

std::string editedUnittest(const std::vector<std::pair<std::string, std::string>>& edits) {
  const std::string name = uniqueName("unittest");
  scratch().write(name + "/" + unittest, editedAll(readFile(corpus + "/" + unittest), edits));
  return scratch().path() + "/" + name;
}

TEST(ToolCheck, EditedCopiesOfTheCorpusUnittestProto) {
  if (readFile(corpus + "/" + unittest).empty()) GTEST_SKIP() << "no corpus at " << corpus;
  const RealCase cases[] = {
      {"int32 made sint32 and a nested field renamed",
       {{"optional    int32 optional_int32    =  1;", "optional   sint32 optional_int32    =  1;"},
        {"optional int32 bb = 1;", "optional int32 cc = 1;"}},
       {"type changed: optional_int32 | publishers, subscribers, stored messages, traces | not "
        "safe without a coordinated switch",
        "field renamed: optional_nested_message.cc | subscribers, find sets, stored messages, "
        "traces | not safe without a coordinated switch",
        coordinated},
       1},
      {"a nested enum value added",
       {{"    NEG = -1;", "    NEG = -1;\n    HUGE = 100;"}},
       {"enum value added: optional_nested_enum | subscribers | safe in any order", any},
       0},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    const auto run =
        tarnpb("check -q -p " + unittest + " -t protobuf_unittest.TestAllTypes --new-proto-path " +
               quote(corpus) + " " + quote(corpus) + " " + quote(editedUnittest(c.edits)));
    EXPECT_EQ(verdicts(run.out), c.expected) << run.out << run.lastError;
    EXPECT_EQ(run.status, c.status);
  }
}

TEST(ToolCheck, TheGoldenPackedBodyShowsWhatTurningPackedOffDoes) {
  if (readFile(corpus + "/" + unittest).empty()) GTEST_SKIP() << "no corpus at " << corpus;
  const std::string edited =
      editedUnittest({{"packed_int32    =  90 [packed = true];", "packed_int32    =  90;"}});
  const std::string golden = corpus + "/golden_packed_fields_message";
  const auto run = tarnpb(
      "check -q -p " + unittest + " -t protobuf_unittest.TestPackedTypes --new-proto-path " +
      quote(corpus) + " " + quote(corpus) + " " + quote(edited) + " --body " + quote(golden));
  EXPECT_EQ(run.status, 1) << run.lastError;
  // The packed block is one string entry under the new version: its first
  // element's entry holds the block, the second has no counterpart.
  EXPECT_NE(run.out.find("\nbody " + golden +
                         " (142 bytes): differs\n"
                         "  value at byte 0 (packed_int32)\n"
                         "    old: int 601\n"
                         "    new: string \"\\xd9\\x04\\xbd\\x05\"\n"
                         "  entry at byte 0 element 2 (packed_int32)\n"
                         "    old: int 701\n"
                         "    new: none\n"
                         "  trace\n"
                         "    old: protobuf({\"packed_int32\":[601,701],"),
            std::string::npos)
      << run.out;
  EXPECT_NE(run.out.find("\n    new: protobuf({\"packed_int32\":\"\\xd9\\x04\\xbd\\x05\","),
            std::string::npos)
      << run.out;
}

// A rename and a type change, seen on a stream of two bodies: values and
// hashes entry by entry, the traces, and the merge a server makes right after
// it switches, where the renamed field no longer meets its stored self.
TEST(ToolCheck, SampleBodiesShowTheDifferencesEntryByEntry) {
  const std::string newText =
      edited(base, {{"optional int32 a = 1;", "optional sint32 a = 1;"},
                    {"optional string s = 1;", "optional string text = 1;"}});
  const std::string dir = versions("m.proto", base, newText);
  // a = 3, n { s = "y" }; then a = 5.
  const std::string stream = scratch().write(
      uniqueName("stream"), std::string("\x07\x08\x03\x12\x03\x0a\x01y\x02\x08\x05", 11));
  const auto run = tarnpb("check -q -p m.proto -t t.M -d --body " + quote(stream) + " " +
                          quote(dir + "/old") + " " + quote(dir + "/new"));
  EXPECT_EQ(run.status, 1) << run.lastError;
  const size_t at = run.out.find("\nbody ");
  ASSERT_NE(at, std::string::npos) << run.out;
  EXPECT_EQ(run.out.substr(at), "\nbody " + stream +
                                    " #1 (7 bytes): differs\n"
                                    "  value at byte 0 (a)\n"
                                    "    old: int 3\n"
                                    "    new: int -2\n"
                                    "  hash at byte 4\n"
                                    "    old: n.s 0x15092045\n"
                                    "    new: n.text 0x5700948b\n"
                                    "  trace\n"
                                    "    old: protobuf({\"a\":3,\"n\":{\"s\":\"y\"}})\n"
                                    "    new: protobuf({\"a\":3,\"n\":{\"text\":\"y\"}})\n"
                                    "  merge across the switch into " +
                                    stream +
                                    " #1\n"
                                    "    old: 7 bytes: 08 03 12 03 0a 01 79\n"
                                    "    new: 10 bytes: 08 03 12 06 0a 01 79 0a 01 79\n"
                                    "\nbody " +
                                    stream +
                                    " #2 (2 bytes): differs\n"
                                    "  value at byte 0 (a)\n"
                                    "    old: int 5\n"
                                    "    new: int -3\n"
                                    "\nrollout: not safe without a coordinated switch\n");
}

TEST(ToolCheck, JsonForPipelines) {
  const std::string dir = versions(
      "m.proto", base,
      edited(base,
             {{"  repeated Inner items", "  optional string note = 15;\n  repeated Inner items"}}));
  const auto run = tarnpb("check -q -p m.proto -t t.M --json " + quote(dir + "/old") + " " +
                          quote(dir + "/new"));
  EXPECT_EQ(run.status, 1) << run.lastError;
  EXPECT_EQ(
      run.out,
      "{\"old\":{\"file\":\"m.proto\",\"type\":\"t.M\",\"proto_path\":[\"" + dir +
          "/old\"]},\"new\":{\"file\":\"m.proto\",\"type\":\"t.M\",\"proto_path\":[\"" + dir +
          "/new\"]},\"changes\":[{\"kind\":\"field added\",\"path\":\"note\",\"old\":null,"
          "\"new\":\"string note = 15\",\"also_at\":[],\"effect\":\"Servers still on the "
          "old schema refuse every body that carries field 15: the number is not declared "
          "there. Switched servers accept bodies with or without it.\",\"affects\":["
          "\"publishers\"],\"rollout\":\"servers before publishers\"}],\"bodies\":[],"
          "\"rollout\":\"servers before publishers\",\"safe\":false,\"two_versions\":false}\n");
}

TEST(ToolCheck, UsageErrors) {
  const std::string dir = versions("m.proto", base, base);
  const std::string oldDir = quote(dir + "/old"), newDir = quote(dir + "/new");
  const struct {
    std::string args;
    std::string lastError;
  } cases[] = {
      {oldDir, "tarnpb check: missing argument: tarnpb check [options] OLD NEW"},
      {oldDir + " " + newDir,
       "tarnpb check: " + dir + "/old is a directory: name the file in it with --proto"},
      {"-p m.proto " + quote(dir + "/old/m.proto") + " " + quote(dir + "/new/m.proto"),
       "tarnpb check: " + dir +
           "/old/m.proto is a file: --proto names a file in OLD and NEW directories"},
      {"-p m.proto /nonexistent/old " + newDir,
       "tarnpb check: cannot read /nonexistent/old: No such file or directory"},
      {"-p m.proto --bogus " + oldDir + " " + newDir,
       "tarnpb check: unknown option --bogus (see tarnpb check --help)"},
  };
  for (const auto& c : cases) {
    const auto run = tarnpb("check -q " + c.args);
    EXPECT_EQ(run.status, 2) << c.args;
    EXPECT_EQ(run.lastError, c.lastError);
  }
}

}  // namespace

#endif

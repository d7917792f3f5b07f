// tarnpb check: one pair of schema versions per kind of change, each with the
// verdict the module's rules give it (what kind of change, who sees it, the
// rollout order) and the exit status; unchanged pairs report nothing. Pairs
// are made at test time by editing a base schema, or copies of real ones.
#ifdef TARNPB_PATH

#include <gtest/gtest.h>

#include <sstream>

#include "tool_run.h"

namespace {

using tarn_test::quote;
using tarn_test::readFile;
using tarn_test::scratch;
using tarn_test::tarnpb;
using tarn_test::uniqueName;

const char* const base = R"(syntax = "proto2";
package t;
message Inner {
  optional string s = 1;
  optional int32 d = 2 [default = 7];
}
enum Color { RED = 0; GREEN = 1; }
message M {
  optional int32 a = 1;
  optional Inner n = 2;
  repeated int32 r = 3;
  optional fixed32 f = 4;
  optional string s = 5;
  optional Color c = 6;
  optional float x = 7;
  optional int64 big = 8;
  optional bytes raw = 9;
  optional uint32 u = 10;
  optional string tag = 11 [default = "none"];
  repeated Inner items = 12;
  oneof choice {
    int32 left = 13;
    string right = 14;
  }
}
)";

// The same schema written another way: comments, spacing, and every
// declaration in another order. The module sees no difference.
const char* const reordered = R"(// reordered
syntax="proto2";  package   t;

message M {
  oneof choice { string right = 14; int32 left = 13; }
  repeated Inner items = 12;
  optional string tag = 11 [ default = "none" ];
  optional uint32 u = 10; optional bytes raw = 9; optional int64 big = 8;
  optional float x = 7;
  optional Color c = 6;
  optional string s = 5;   // a comment
  optional fixed32 f = 4;
  repeated int32 r = 3;
  optional Inner n = 2;
  optional int32 a = 1;
}
enum Color { GREEN = 1; RED = 0; }
message Inner { optional int32 d = 2 [default = 7]; optional string s = 1; }
)";

std::string edited(std::string text,
                   const std::vector<std::pair<std::string, std::string>>& edits) {
  for (const auto& e : edits) {
    const size_t at = text.find(e.first);
    if (at == std::string::npos) return "edit not found: " + e.first;
    text.replace(at, e.first.size(), e.second);
  }
  return text;
}

// A directory holding the old and the new version of a file, in old/ and new/.
std::string versions(const std::string& file, const std::string& oldText,
                     const std::string& newText) {
  const std::string name = uniqueName("check");
  scratch().write(name + "/old/" + file, oldText);
  scratch().write(name + "/new/" + file, newText);
  return scratch().path() + "/" + name;
}

// The two versions of m.proto, as check's arguments.
std::string pair(const std::string& oldText, const std::string& newText) {
  const std::string dir = versions("m.proto", oldText, newText);
  return quote(dir + "/old") + " " + quote(dir + "/new");
}

// "kind: path | affects | rollout" for each change, then the closing verdict.
std::vector<std::string> verdicts(const std::string& out) {
  std::vector<std::string> lines, found;
  std::istringstream in(out);
  for (std::string line; std::getline(in, line);) lines.push_back(line);
  std::string current, affects;
  for (const auto& line : lines) {
    if (line.rfind("old: ", 0) == 0 || line.rfind("new: ", 0) == 0) continue;
    if (line.rfind("rollout: ", 0) == 0) {
      found.push_back(line);
    } else if (line.rfind("  affects: ", 0) == 0) {
      affects = line.substr(11);
    } else if (line.rfind("  rollout: ", 0) == 0) {
      found.push_back(current + " | " + affects + " | " + line.substr(11));
    } else if (!line.empty() && line[0] != ' ') {
      current = line;
    }
  }
  return found;
}

const std::string any = "rollout: safe in any order";
const std::string coordinated = "rollout: not safe without a coordinated switch";
const std::string serversFirst = "rollout: servers before publishers";
const std::string publishersFirst = "rollout: publishers before servers";
const std::string all = "publishers, subscribers, find sets, stored messages, traces";

struct Case {
  const char* name;
  std::vector<std::pair<std::string, std::string>> edits;
  std::vector<std::string> expected;  // verdicts(), the closing line last
  int status;
};

TEST(ToolCheck, EachKindOfChangeGetsTheModulesVerdict) {
  const Case cases[] = {
      {"unchanged", {}, {any}, 0},
      {"field added",
       {{"  repeated Inner items", "  optional string note = 15;\n  repeated Inner items"}},
       {"field added: note | publishers | servers before publishers", serversFirst},
       1},
      {"field added with a default",
       {{"  repeated Inner items",
         "  optional int32 level = 15 [default = 3];\n  repeated "
         "Inner items"}},
       {"field added: level | publishers, subscribers | servers before publishers", serversFirst},
       1},
      {"group added",
       {{"  repeated Inner items",
         "  optional group G = 15 { optional int32 q = 1; }\n  "
         "repeated Inner items"}},
       {"field added: g | publishers | servers before publishers", serversFirst},
       1},
      {"field added below the root",
       {{"optional int32 d = 2 [default = 7];",
         "optional int32 d = 2 [default = 7];\n  "
         "optional int64 extra = 3;"}},
       {"field added: n.extra | publishers | servers before publishers", serversFirst},
       1},
      {"field removed",
       {{"  optional string s = 5;\n", ""}},
       {"field removed: s | publishers, subscribers, find sets, stored messages | publishers "
        "before servers",
        publishersFirst},
       1},
      {"field removed, number reserved",
       {{"  optional string s = 5;\n", "  reserved 5;\n"}},
       {"field removed: s | publishers, subscribers, find sets, stored messages | publishers "
        "before servers",
        publishersFirst},
       1},
      {"field renamed",
       {{"optional int32 a = 1;", "optional int32 alpha = 1;"}},
       {"field renamed: alpha | subscribers, find sets, stored messages, traces | not safe "
        "without a coordinated switch",
        coordinated},
       1},
      {"message field renamed",
       {{"optional Inner n = 2;", "optional Inner inner = 2;"}},
       {"field renamed: inner | subscribers, find sets, stored messages, traces | not safe "
        "without a coordinated switch",
        coordinated},
       1},
      {"message type renamed",
       {{"message Inner", "message Detail"},
        {"optional Inner n", "optional Detail n"},
        {"repeated Inner items", "repeated Detail items"}},
       {"message type renamed: n | nobody | safe in any order",
        "message type renamed: items | nobody | safe in any order", any},
       0},
      {"number reused for another type",
       {{"optional string s = 5;", "optional int64 count = 5;"}},
       {"number reused: count | " + all + " | not safe without a coordinated switch", coordinated},
       1},
      {"number reused, the old name reserved",
       {{"optional string s = 5;", "optional string label = 5;\n  reserved \"s\";"}},
       {"number reused: label | " + all + " | not safe without a coordinated switch", coordinated},
       1},
      {"int32 to sint32",
       {{"optional int32 a = 1;", "optional sint32 a = 1;"}},
       {"type changed: a | publishers, subscribers, stored messages, traces | not safe without "
        "a coordinated switch",
        coordinated},
       1},
      {"fixed32 to sfixed32",
       {{"optional fixed32 f = 4;", "optional sfixed32 f = 4;"}},
       {"type changed: f | publishers, subscribers, stored messages, traces | not safe without "
        "a coordinated switch",
        coordinated},
       1},
      {"float to fixed32",
       {{"optional float x = 7;", "optional fixed32 x = 7;"}},
       {"type changed: x | publishers, subscribers, stored messages, traces | not safe without "
        "a coordinated switch",
        coordinated},
       1},
      {"int32 to uint32",
       {{"optional int32 a = 1;", "optional uint32 a = 1;"}},
       {"type changed: a | publishers, subscribers, traces | servers before publishers",
        serversFirst},
       1},
      {"uint32 to int32",
       {{"optional uint32 u = 10;", "optional int32 u = 10;"}},
       {"type changed: u | publishers, subscribers, stored messages, traces | publishers before "
        "servers",
        publishersFirst},
       1},
      {"int64 to uint64",
       {{"optional int64 big = 8;", "optional uint64 big = 8;"}},
       {"type changed: big | nobody | safe in any order", any},
       0},
      {"string to bytes",
       {{"optional string s = 5;", "optional bytes s = 5;"}},
       {"type changed: s | nobody | safe in any order", any},
       0},
      {"message to bytes",
       {{"optional Inner n = 2;", "optional bytes n = 2;"}},
       {"type changed: n | " + all + " | not safe without a coordinated switch", coordinated},
       1},
      {"int32 to string",
       {{"optional int32 a = 1;", "optional string a = 1;"}},
       {"type changed: a | publishers, subscribers, stored messages, traces | publishers before "
        "servers",
        publishersFirst},
       1},
      {"string to int32",
       {{"optional string s = 5;", "optional int32 s = 5;"}},
       {"type changed: s | publishers, subscribers, traces | servers before publishers",
        serversFirst},
       1},
      {"int64 to double",
       {{"optional int64 big = 8;", "optional double big = 8;"}},
       {"type changed: big | publishers, subscribers, stored messages, traces | not safe "
        "without a coordinated switch",
        coordinated},
       1},
      {"packed turned on",
       {{"repeated int32 r = 3;", "repeated int32 r = 3 [packed = true];"}},
       {"packed changed: r | publishers, subscribers, traces | servers before publishers",
        serversFirst},
       1},
      {"optional message made repeated",
       {{"optional Inner n = 2;", "repeated Inner n = 2;"}},
       {"label changed: n | nobody | safe in any order", any},
       0},
      {"repeated message made optional",
       {{"repeated Inner items = 12;", "optional Inner items = 12;"}},
       {"label changed: items | nobody | safe in any order", any},
       0},
      {"field made required",
       {{"optional int32 a = 1;", "required int32 a = 1;"}},
       {"label changed: a | subscribers | safe in any order", any},
       0},
      {"default changed",
       {{"[default = \"none\"]", "[default = \"n/a\"]"}},
       {"default changed: tag | subscribers | not safe without a coordinated switch", coordinated},
       1},
      {"default added below the root",
       {{"optional string s = 1;", "optional string s = 1 [default = \"x\"];"}},
       {"default added: n.s | subscribers | not safe without a coordinated switch", coordinated},
       1},
      {"default removed",
       {{" [default = \"none\"]", ""}},
       {"default removed: tag | subscribers | not safe without a coordinated switch", coordinated},
       1},
      {"enum value added",
       {{"GREEN = 1;", "GREEN = 1; BLUE = 2;"}},
       {"enum value added: c | subscribers | safe in any order", any},
       0},
      {"enum value removed",
       {{" GREEN = 1;", ""}},
       {"enum value removed: c | nobody | safe in any order", any},
       0},
      {"enum value renamed",
       {{"GREEN = 1;", "LIME = 1;"}},
       {"enum value renamed: c | nobody | safe in any order", any},
       0},
      {"enum value renumbered",
       {{"GREEN = 1;", "GREEN = 2;"}},
       {"enum value renumbered: c | publishers, subscribers | not safe without a coordinated "
        "switch",
        coordinated},
       1},
      {"member taken out of its oneof",
       {{"    int32 left = 13;\n", ""},
        {"  repeated Inner items",
         "  optional int32 left = 13;\n"
         "  repeated Inner items"}},
       {"oneof changed: left | nobody | safe in any order", any},
       0},
      {"one field added and another removed",
       {{"  optional string s = 5;\n", ""},
        {"  repeated Inner items", "  optional string note = 15;\n  repeated Inner items"}},
       {"field removed: s | publishers, subscribers, find sets, stored messages | publishers "
        "before servers",
        "field added: note | publishers | servers before publishers",
        coordinated + " (some changes need servers first, others publishers first: roll them "
                      "out as two versions)"},
       1},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    const auto run = tarnpb("check -q -p m.proto -t t.M " + pair(base, edited(base, c.edits)));
    EXPECT_EQ(verdicts(run.out), c.expected) << run.out << run.lastError;
    EXPECT_EQ(run.status, c.status);
  }
}

TEST(ToolCheck, AReformattedAndReorderedFileReportsNothing) {
  const auto run = tarnpb("check -q -p m.proto -t t.M " + pair(base, reordered));
  EXPECT_EQ(run.status, 0) << run.lastError;
  EXPECT_NE(run.out.find("\nno change reaches t.M\n\nrollout: safe in any order\n"),
            std::string::npos)
      << run.out;
}

TEST(ToolCheck, TheRootTypeRenamedOrGone) {
  const std::string renamed = edited(base, {{"message M {", "message Msg {"}});
  auto run = tarnpb("check -q -p m.proto -t t.M --new-type t.Msg " + pair(base, renamed));
  EXPECT_EQ(verdicts(run.out),
            (std::vector<std::string>{"root type renamed | nobody | safe in any order", any}));
  EXPECT_EQ(run.status, 0);
  run = tarnpb("check -q -p m.proto -t t.M " + pair(base, renamed));
  EXPECT_EQ(verdicts(run.out),
            (std::vector<std::string>{"root type gone | publishers, subscribers, find sets, "
                                      "stored messages | not safe without a coordinated switch",
                                      coordinated}));
  EXPECT_EQ(run.status, 1);
}

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
  EXPECT_EQ(run.out,
            "{\"old\":{\"file\":\"m.proto\",\"type\":\"t.M\",\"proto_path\":[\"" + dir +
                "/old\"]},\"new\":{\"file\":\"m.proto\",\"type\":\"t.M\",\"proto_path\":[\"" + dir +
                "/new\"]},\"changes\":[{\"kind\":\"field added\",\"path\":\"note\",\"old\":null,"
                "\"new\":\"string note = 15\",\"also_at\":[],\"effect\":\"Servers still on the "
                "old schema refuse every body that carries field 15: the number is not declared "
                "there. Switched servers accept bodies with or without it.\",\"affects\":["
                "\"publishers\"],\"rollout\":\"servers before publishers\"}],\"bodies\":[],"
                "\"rollout\":\"servers before publishers\",\"safe\":false}\n");
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

// tarnpb check: one pair of schema versions per kind of change, each with the
// verdict the module's rules give it (what kind of change, who sees it, the
// rollout order) and the exit status; unchanged pairs report nothing. Pairs
// are made at test time by editing a base schema, or copies of real ones.
#ifdef TARNPB_PATH

#include <gtest/gtest.h>

#include "check_pairs.h"

namespace {

using namespace tarn_test::check_pairs;
using tool_run::tarnpb;

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
    // Scripts get the advice to split as a member of its own.
    if (c.expected.back().find("two versions") != std::string::npos) {
      const auto json =
          tarnpb("check -q -j -p m.proto -t t.M " + pair(base, edited(base, c.edits)));
      EXPECT_NE(json.out.find("\"safe\":false,\"two_versions\":true}"), std::string::npos)
          << json.out;
    }
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

// proto3 packs repeated scalars unless told otherwise, and a map is a repeated
// message of key and value: both are judged like any other field.
TEST(ToolCheck, Proto3PackingAndMaps) {
  const std::string oldText =
      "syntax = \"proto3\";\npackage p;\n"
      "message M { int32 x = 1; map<string, int32> counts = 2; }\n";
  const std::string newText =
      "syntax = \"proto3\";\npackage p;\n"
      "message M { repeated int32 x = 1; map<string, int64> counts = 2; }\n";
  const auto run = tarnpb("check -q -p m.proto " + pair(oldText, newText));
  EXPECT_EQ(verdicts(run.out),
            (std::vector<std::string>{
                "label changed: x | publishers, subscribers, traces | servers before publishers",
                "type changed: counts.value | publishers, subscribers, traces | servers before "
                "publishers",
                serversFirst}))
      << run.out;
  EXPECT_EQ(run.status, 1);
}

}  // namespace

#endif

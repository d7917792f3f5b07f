// tarnpb merge warns wherever the module's delta merge departs from
// protobuf's merge on the schema at hand, on standard error (in the document
// with --json: tool_json_test.cc), and prints a summary of the merge unless
// the parsed view is asked for.
#ifdef TARNPB_PATH

#include <gtest/gtest.h>
#include <unistd.h>

#include "tool_run.h"

namespace {

using namespace tool_run;

const std::string structs =
    "merge -q --text --proto google/protobuf/struct.proto -o /dev/null -t google.protobuf.";
const std::string warning = "tarnpb merge: warning: ";

bool haveWellKnown() { return ::access("/usr/include/google/protobuf/struct.proto", R_OK) == 0; }

TEST(ToolMerge, DeparturesFromProtobufsMergeAreExplained) {
  if (!haveWellKnown()) GTEST_SKIP() << "no google/protobuf/struct.proto";
  std::string many;
  for (int i = 0; i < 50; ++i) many += "values { bool_value: true } ";
  const struct {
    std::string type, stored, update, err;
  } cases[] = {
      {"Value", "number_value: 3", "string_value: \"new\"",
       warning + "oneof kind: the update sets string_value while the stored message holds "
                 "number_value; the merged message carries both, the update's first, so protobuf "
                 "readers see number_value and the update's string_value is lost (protobuf's merge "
                 "would keep string_value alone)\n"},
      // The same member on both sides merges as protobuf merges.
      {"Value", "number_value: 3", "number_value: 4", ""},
      {"Struct",
       R"(fields { key: "a" value { number_value: 1 } } fields { key: "b" value { number_value: 2 } })",
       R"(fields { key: "b" value { number_value: 5 } })",
       warning +
           "map fields: the update's 1 entry replaces the stored map whole, so stored key \"a\" "
           "is gone (protobuf's merge would keep them and overwrite only the keys the update "
           "carries)\n" +
           warning +
           "map fields: each of the update's 1 entry with a message value or none is merged "
           "against one stored entry (the first, with this tool's host), so every one receives "
           "the fields of that entry's value it lacks\n"},
      {"ListValue", R"(values { string_value: ")" + std::string(1000, 'x') + R"(" })", many,
       warning +
           "repeated field values: the update's 50 items replace the stored 1 whole "
           "(protobuf's merge would append them, giving 51)\n" +
           warning +
           "repeated field values: each of the update's 50 items is merged against one stored "
           "item (the first, with this tool's host), so every one receives the fields of that "
           "item it lacks\n" +
           warning +
           "oneof values.kind: the update sets bool_value while the stored message holds "
           "string_value; the merged message carries both, the update's first, so protobuf "
           "readers see string_value and the update's bool_value is lost (protobuf's merge "
           "would keep bool_value alone)\n" +
           warning +
           "the merged message is 50400 bytes, 41 times the stored and update messages "
           "together (1206 bytes): update items merged against one stored item each carry a "
           "copy of its fields\n"},
      {"Value", R"(struct_value { fields { key: "a" value { bool_value: true } } })",
       "struct_value { }",
       warning + "message field struct_value: the update's empty message replaces the stored one "
                 "whole (protobuf's merge would leave the stored one as it is)\n"},
  };
  for (const auto& c : cases) {
    const ToolRun run = tarnpb(structs + c.type + " " + file(c.stored) + " " + file(c.update));
    EXPECT_EQ(0, run.status) << c.update;
    EXPECT_EQ(c.err, run.err) << c.update;
  }
}

TEST(ToolMerge, SummaryUnlessTheViewIsAskedFor) {
  const std::string both =
      file("bids { quantity: 1 } bids { quantity: 2 }") + " " + file("sequence: 9");
  const std::string merge = "merge --text -o /dev/null " + book;
  EXPECT_EQ(
      "merged message: tarn.example.BookSnapshot, 17 bytes from a stored 8 and an update 9; no "
      "departure from protobuf's merge\n",
      tarnpb(merge + both).out);
  const ToolRun view = tarnpb(merge + "--view " + both);
  EXPECT_EQ(0u, view.out.find("merged message: tarn.example.BookSnapshot, 17 bytes from a "
                              "stored 8 and an update 9; no departure from protobuf's merge\n"
                              "merged message: tarn.example.BookSnapshot, 17 bytes, 9 entries\n"))
      << view.out;
}

}  // namespace

#endif

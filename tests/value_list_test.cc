// The stand-in host's value list, the one a server hands to serialization, on
// the shapes real messages show: empty nested messages at every depth, nested
// messages whose entries are all schema defaults, packed fields, repeated
// nested messages. Each case gives the list and the module's bytes exactly.
#include "host/value_list.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "module_fixture.h"
#include "random_message.h"
#include "wire.h"

namespace {

using wire::fromHex;
using wire::hex;

// One value a line: depth, then "doc" for a document or the bytes to copy.
std::string render(const tarn_host::ValueList& list_) {
  std::string out;
  for (const auto& v : list_.values()) {
    out += std::to_string(v.depth);
    if (v.xpath_value.type_hint == tarn_message_xpath_value_type_document) {
      out += " doc\n";
    } else {
      out += " " + hex(std::string(v.xpath_value.raw_bytes, v.xpath_value.raw_bytes_length)) + "\n";
    }
  }
  return out;
}

// The module's serialization of the list, in the room its size answer asks for.
std::string serialize(tarn_host::ValueList& list_) {
  std::string segment;
  EXPECT_EQ(TARN_SUCCESS, tarn_test::driver().serialize(*list_.list(), segment));
  return segment;
}

struct Schema {
  const char* dir;  // "" for tests/data
  const char* file;
  const char* type;
};
const Schema fileSet = {"/usr/include", "google/protobuf/descriptor.proto",
                        "google.protobuf.FileDescriptorSet"};
const Schema node = {"", "deep.proto", "tarn.deep.Node"};
const Schema branch = {"", "rich.proto", "tarn.test.Branch"};
const Schema leaf = {"", "rich.proto", "tarn.test.Leaf"};

std::string dirOf(const Schema& s_) { return *s_.dir ? s_.dir : tarn_test::dataDir(); }

TEST(ValueList, RealWorldShapesListAndRebuildExactly) {
  const struct {
    const char* name;
    Schema schema;
    const char* body;
    const char* list;
    const char* rebuilt;
  } cases[] = {
      {"a file with empty options, then a second file", fileSet, "0A 02 42 00 0A 00",
       "1 doc\n2 42 00\n1 0A 00\n", "0A 82 80 80 00 42 00 0A 00"},
      {"empty message at depth 1, a field after it", node, "0A 00 10 01", "1 0A 00\n1 10 01\n",
       "0A 00 10 01"},
      {"empty message at depth 2", node, "0A 04 0A 00 10 01 10 02",
       "1 doc\n2 0A 00\n2 10 01\n1 10 02\n", "0A 84 80 80 00 0A 00 10 01 10 02"},
      {"empty message at depth 3", node, "0A 08 0A 04 0A 00 10 01 10 02 10 03",
       "1 doc\n2 doc\n3 0A 00\n3 10 01\n2 10 02\n1 10 03\n",
       "0A 8B 80 80 00 0A 84 80 80 00 0A 00 10 01 10 02 10 03"},
      {"empty message as the last value", node, "10 05 0A 00", "1 10 05\n1 0A 00\n", "10 05 0A 00"},
      {"only an empty message", node, "0A 00", "1 0A 00\n", "0A 00"},
      {"a message whose entries are all defaults", branch, "0A 00 18 05", "1 0A 00\n1 18 05\n",
       "0A 00 18 05"},
      {"a packed field listed once", leaf, "22 03 02 04 01 08 07", "1 22 03 02 04 01\n1 08 07\n",
       "22 03 02 04 01 08 07"},
      {"repeated nested messages, an empty one between", branch, "12 02 08 01 12 00 12 02 08 03",
       "1 doc\n2 08 01\n1 12 00\n1 doc\n2 08 03\n",
       "12 82 80 80 00 08 01 12 00 12 82 80 80 00 08 03"},
      {"a packed field as a message's only member", branch, "0A 04 22 02 02 04",
       "1 doc\n2 22 02 02 04\n", "0A 84 80 80 00 22 02 02 04"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    tarn_host::ValueSet set;
    const std::string body = fromHex(c.body);
    ASSERT_EQ(TARN_SUCCESS,
              tarn_test::parse(tarn_test::context(c.schema.file, c.schema.type, dirOf(c.schema)),
                               body, set));
    tarn_host::ValueList list;
    ASSERT_TRUE(list.build(set));
    EXPECT_EQ(c.list, render(list));
    const std::string rebuilt = serialize(list);
    EXPECT_EQ(c.rebuilt, hex(rebuilt));
    // libprotobuf reads the rebuild as the input message.
    const auto& schema = tarn_test::TestSchema::get(c.schema.file, dirOf(c.schema));
    const auto* pType = schema.type(c.schema.type);
    auto input = schema.read(pType, body);
    auto again = schema.read(pType, rebuilt);
    ASSERT_TRUE(input && again);
    EXPECT_EQ(input->SerializePartialAsString(), again->SerializePartialAsString());
  }
}

// An empty message at every depth the module parses, each level closed by a
// field after it: libprotobuf reads every rebuild as its input.
TEST(ValueList, EmptyMessageAtEveryDepthRebuildsTheMessage) {
  const auto& schema = tarn_test::TestSchema::get(node.file);
  const auto* pType = schema.type(node.type);
  for (int depth = 1; depth <= 100; ++depth) {
    SCOPED_TRACE(depth);
    std::string body;
    for (int level = depth; level >= 1; --level)
      body = wire::Body().msg(1, wire::Body().raw(body)).varint(2, level);
    tarn_host::ValueSet set;
    ASSERT_EQ(TARN_SUCCESS, tarn_test::parse(tarn_test::context(node.file, node.type), body, set));
    tarn_host::ValueList list;
    ASSERT_TRUE(list.build(set));
    // A document per level above the empty one, and a value for every field.
    EXPECT_EQ(static_cast<size_t>(depth - 1),
              std::count_if(list.values().begin(), list.values().end(), [](const auto& v) {
                return v.xpath_value.type_hint == tarn_message_xpath_value_type_document;
              }));
    EXPECT_EQ(static_cast<size_t>(2 * depth), list.values().size());
    auto again = schema.read(pType, serialize(list));
    ASSERT_NE(nullptr, again);
    EXPECT_EQ(schema.read(pType, body)->SerializePartialAsString(),
              again->SerializePartialAsString());
  }
}

TEST(ValueList, LongPackedFieldIsOneValue) {
  std::string elements;
  for (int i = 0; i < 100000; ++i) elements += wire::varintBytes(wire::zigzag(i - 50000));
  const std::string body = wire::Body().msg(1, wire::Body().str(4, elements));
  tarn_host::ValueSet set;
  ASSERT_EQ(TARN_SUCCESS,
            tarn_test::parse(tarn_test::context(branch.file, branch.type), body, set));
  // The message, its elements, then the defaults of Leaf.dbl and Branch.count.
  ASSERT_EQ(100003u, set.size());
  tarn_host::ValueList list;
  ASSERT_TRUE(list.build(set));
  ASSERT_EQ(2u, list.values().size());
  EXPECT_EQ(body.size() - 4, list.values()[1].xpath_value.raw_bytes_length);
  // The message's prefix was three bytes; the module writes the same groups
  // in four, the third now continued and a zero group after it.
  ASSERT_EQ(0, body[3] & 0x80);
  const std::string prefix = body.substr(1, 2) + static_cast<char>(body[3] | 0x80) + '\0';
  EXPECT_EQ(body.substr(0, 1) + prefix + body.substr(4), serialize(list));
}

TEST(ValueList, EmptySetListsNothing) {
  tarn_host::ValueSet set;
  tarn_host::ValueList list;
  EXPECT_FALSE(list.build(set));
  EXPECT_EQ(0u, list.list()->count);
}

}  // namespace

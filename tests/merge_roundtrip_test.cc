// Differential checks of merge and serialization against libprotobuf, on
// random messages of tests/data/rich.proto parsed by the module:
// - merging a random update over a random stored message gives what the merge
//   rules describe, modelled here with libprotobuf reflection;
// - a parsed message re-serialized from a value list built from its entries
//   reads back as the same message.
#include <gtest/gtest.h>

#include <map>

#include "host/module_driver.h"
#include "host/value_list.h"
#include "random_message.h"
#include "wire.h"

namespace {

using google::protobuf::Descriptor;
using google::protobuf::FieldDescriptor;
using google::protobuf::Message;
using tarn_test::TestSchema;

const Descriptor* richType() { return TestSchema::get().type("tarn.test.Rich"); }

std::vector<const FieldDescriptor*> present(const Message& m_) {
  std::vector<const FieldDescriptor*> fields;
  m_.GetReflection()->ListFields(m_, &fields);
  return fields;
}

// Whether the parser gives a message occurrence child entries: a field that
// occurs, or an absent one with a declared default.
bool hasChildren(const Message& m_) {
  const Descriptor* d = m_.GetDescriptor();
  bool any = !present(m_).empty();
  for (int i = 0; i < d->field_count(); ++i) any = any || d->field(i)->has_default_value();
  return any;
}

// The first entry the parser stores under each field path (names joined by
// '/'): a level's fields in wire order (libprotobuf writes them by number, as
// ListFields lists them), each message's entries right after its own, then
// the level's defaults of absent fields.
struct FirstEntries {
  std::map<std::string, bool> hasBytes;           // false: a default entry
  std::map<std::string, const Message*> message;  // message-typed paths

  void walk(const Message& m_, const std::string& prefix_) {
    const auto* r = m_.GetReflection();
    for (const FieldDescriptor* f : present(m_)) {
      const std::string path = prefix_ + f->name();
      hasBytes.emplace(path, true);
      if (f->cpp_type() != FieldDescriptor::CPPTYPE_MESSAGE) continue;
      for (int i = 0; i < (f->is_repeated() ? r->FieldSize(m_, f) : 1); ++i) {
        const Message& child =
            f->is_repeated() ? r->GetRepeatedMessage(m_, f, i) : r->GetMessage(m_, f);
        message.emplace(path, &child);
        walk(child, path + "/");
      }
    }
    const Descriptor* d = m_.GetDescriptor();
    for (int i = 0; i < d->field_count(); ++i)
      if (d->field(i)->has_default_value() && !r->HasField(m_, d->field(i)))
        hasBytes.emplace(prefix_ + d->field(i)->name(), false);
  }
};

// The encoding of one field of m_ alone, all its elements.
std::string onlyField(const Message& m_, const FieldDescriptor* f_) {
  std::unique_ptr<Message> copy(m_.New());
  copy->CopyFrom(m_);
  for (const FieldDescriptor* other : present(m_))
    if (other != f_) copy->GetReflection()->ClearField(copy.get(), other);
  return copy->SerializePartialAsString();
}

// The merged body as the merge rules describe it: the update's fields first (a
// nested message merged with the stored occurrence its path finds first, when
// both have children), then the stored fields whose path the update's first
// entry does not carry with bytes. A reader of the concatenation applies its
// own rules (last scalar wins, repeated fields append, messages merge).
// mergesInto_ counts, per stored path, the update occurrences merged into it.
std::string modelMerge(const Message& update_, const Message* pStored_, const std::string& prefix_,
                       const FirstEntries& upd_, const FirstEntries& old_,
                       std::map<std::string, int>& mergesInto_) {
  std::string out;
  const auto* r = update_.GetReflection();
  for (const FieldDescriptor* f : present(update_)) {
    const std::string path = prefix_ + f->name();
    if (f->cpp_type() != FieldDescriptor::CPPTYPE_MESSAGE) {
      out += onlyField(update_, f);
      continue;
    }
    auto partner = old_.message.find(path);
    for (int i = 0; i < (f->is_repeated() ? r->FieldSize(update_, f) : 1); ++i) {
      const Message& element =
          f->is_repeated() ? r->GetRepeatedMessage(update_, f, i) : r->GetMessage(update_, f);
      const bool merge =
          partner != old_.message.end() && hasChildren(element) && hasChildren(*partner->second);
      if (merge) ++mergesInto_[path];
      out += wire::Body()
                 .str(f->number(), merge ? modelMerge(element, partner->second, path + "/", upd_,
                                                      old_, mergesInto_)
                                         : element.SerializePartialAsString())
                 .bytes();
    }
  }
  for (const FieldDescriptor* f : present(*pStored_)) {
    auto it = upd_.hasBytes.find(prefix_ + f->name());
    if (it == upd_.hasBytes.end() || !it->second) out += onlyField(*pStored_, f);
  }
  return out;
}

TEST(RichRoundTrip, MergeOfRandomPairsMatchesTheModelInsideTheRoom) {
  const TestSchema& schema = TestSchema::get();
  int pairsMergedTwice = 0;
  for (int pair = 0; pair < 200; ++pair) {
    SCOPED_TRACE(pair);
    const std::string storedBody = tarn_test::randomBody(richType(), 1000 + 2 * pair);
    const std::string updateBody = tarn_test::randomBody(richType(), 1001 + 2 * pair);
    tarn_host::ValueSet stored, update;
    ASSERT_EQ(TARN_SUCCESS, tarn_test::parse(tarn_test::rich(), storedBody, stored));
    ASSERT_EQ(TARN_SUCCESS, tarn_test::parse(tarn_test::rich(), updateBody, update));
    const uint64_t room = tarn_host::mergeRoom(update.handle(), stored.handle());
    // runMerge fails on a write outside the room, between canaries.
    const std::string output = tarn_test::runMerge(update, stored);
    ASSERT_NE("!", output);

    auto storedMessage = schema.read(richType(), storedBody);
    auto updateMessage = schema.read(richType(), updateBody);
    FirstEntries upd, old;
    upd.walk(*updateMessage, "");
    old.walk(*storedMessage, "");
    std::map<std::string, int> mergesInto;
    auto expected = schema.read(
        richType(), modelMerge(*updateMessage, storedMessage.get(), "", upd, old, mergesInto));
    // Where no stored occurrence takes in two update occurrences, the merge
    // writes each byte of both bodies at most once, and so does the room.
    bool mergedTwice = false;
    for (const auto& path : mergesInto) mergedTwice = mergedTwice || path.second > 1;
    if (mergedTwice) {
      ++pairsMergedTwice;
    } else {
      EXPECT_LE(room, updateBody.size() + storedBody.size());
    }
    auto merged = schema.read(richType(), output);
    ASSERT_NE(nullptr, expected);
    ASSERT_NE(nullptr, merged) << wire::hex(output);
    EXPECT_EQ(expected->SerializePartialAsString(), merged->SerializePartialAsString())
        << "expected " << expected->ShortDebugString() << "\nmerged   "
        << merged->ShortDebugString();
  }
  // Both kinds of pair occur, so the sum was checked and had exceptions.
  EXPECT_GT(pairsMergedTwice, 0);
  EXPECT_LT(pairsMergedTwice, 150);
}

TEST(RichRoundTrip, ReserializedEntriesReadBackAsTheMessage) {
  for (int n = 0; n < 200; ++n) {
    SCOPED_TRACE(n);
    const std::string body = tarn_test::randomBody(richType(), 5000 + n);
    tarn_host::ValueSet set;
    ASSERT_EQ(TARN_SUCCESS, tarn_test::parse(tarn_test::rich(), body, set));
    tarn_host::ValueList values;
    values.build(set);
    std::string segment;
    ASSERT_EQ(TARN_SUCCESS, tarn_test::driver().serialize(*values.list(), segment));
    auto again = TestSchema::get().read(richType(), segment);
    ASSERT_NE(nullptr, again);
    EXPECT_EQ(TestSchema::get().read(richType(), body)->SerializePartialAsString(),
              again->SerializePartialAsString());
  }
}

}  // namespace

// A partial parse reads the same bytes and submits the same records as the
// full parse; only the host's find set decides what is kept.
#include <gtest/gtest.h>

#include <vector>

#include "parser_support.h"
#include "random_message.h"
#include "wire.h"

namespace {

using ptest::entry_t;
using ptest::INV;
using ptest::Parsed;
using ptest::pathHash;

bool sameExceptParent(const entry_t& a, const entry_t& b) {
  return a.hash == b.hash && a.value_mask == b.value_mask && a.value_flags == b.value_flags &&
         a.type_hint == b.type_hint && a.l == b.l && a.raw_bytes == b.raw_bytes &&
         a.tag_bytes == b.tag_bytes && a.string_rep == b.string_rep &&
         a.raw_bytes_length == b.raw_bytes_length && a.tag_length == b.tag_length &&
         a.string_rep_length == b.string_rep_length && a.array == b.array && a.last == b.last &&
         a.array_count == b.array_count && a.first_child == b.first_child &&
         a.next_sibling == b.next_sibling;
}

struct PartialCase {
  const char* name;
  tarn_message_type_context context;
  std::string body;
  std::vector<std::vector<std::string>> wanted;  // paths asked for
  int keptCount;                                 // -1: not fixed by the case
};

// Parses `body` fully and partially over the same bytes and checks the two
// submission sequences and what the partial value set kept.
void checkPartial(const PartialCase& c) {
  SCOPED_TRACE(c.name);
  tarn::tarn_xpath_hash_set find;
  for (const auto& path : c.wanted) {
    uint32_t hash = tarn_host::default_base_hash;
    for (size_t i = 0; i < path.size(); ++i) {
      if (i) hash = tarn_message_xpath_hash_add_separator(hash);
      hash = tarn_message_xpath_hash_string(path[i].data(), path[i].size(), hash);
    }
    find.insert(hash);
  }
  // One body buffer for both parses, so raw pointers compare equal.
  std::vector<entry_t> fullLog, partialLog;
  tarn_host::ValueSet fullSet, partialSet;
  fullSet.recordSubmissions(&fullLog);
  partialSet.recordSubmissions(&partialLog);
  std::unique_ptr<char[]> bytes(new char[c.body.size()]);
  std::copy(c.body.begin(), c.body.end(), bytes.get());
  tarn_input_message input = {};
  input.message_type_context = c.context;
  input.data = bytes.get();
  input.byte_count = c.body.size();
  const int fullStatus = tarn_test::api().parse_message(&input, fullSet.handle());
  const int partialStatus =
      tarn_test::api().partial_parse_message(&input, &find, partialSet.handle());
  fullSet.recordSubmissions(nullptr);
  partialSet.recordSubmissions(nullptr);
  EXPECT_EQ(fullStatus, partialStatus);

  // Every record submitted in the same order; the full parse keeps all, so
  // its parents are submission ordinals.
  ASSERT_EQ(fullLog.size(), partialLog.size());
  ASSERT_EQ(fullLog.size(), fullSet.size());
  // kept[k]: the entry or one of its ancestors was asked for.
  std::vector<bool> kept(fullLog.size());
  std::vector<uint32_t> keptIndex(fullLog.size(), INV);
  uint32_t next = 0;
  for (size_t k = 0; k < fullLog.size(); ++k) {
    SCOPED_TRACE("record " + std::to_string(k));
    EXPECT_TRUE(sameExceptParent(fullLog[k], partialLog[k]));
    const uint32_t parent = fullLog[k].parent;
    kept[k] = find.contains(fullLog[k].hash) || (parent != INV && kept[parent]);
    if (kept[k]) keptIndex[k] = next++;
    EXPECT_EQ(parent == INV ? INV : keptIndex[parent], partialLog[k].parent);
  }

  // The partial set holds exactly the kept records, in order.
  ASSERT_EQ(next, partialSet.size());
  if (c.keptCount >= 0) {
    EXPECT_EQ(static_cast<uint32_t>(c.keptCount), next);
  }
  for (size_t k = 0; k < fullLog.size(); ++k) {
    if (!kept[k]) continue;
    const entry_t& stored = partialSet[keptIndex[k]];
    EXPECT_EQ(fullLog[k].hash, stored.hash);
    EXPECT_EQ(fullLog[k].raw_bytes, stored.raw_bytes);
    EXPECT_EQ(fullLog[k].l, stored.l);
    EXPECT_EQ(partialLog[k].parent, stored.parent);
  }
}

TEST(ParserPartial, SameSubmissionsAsTheFullParse) {
  const auto* rich = tarn_test::TestSchema::get().type("tarn.test.Rich");
  auto richContext = ptest::context(tarn_test::dataDir(), "rich.proto", "tarn.test.Rich");
  std::vector<PartialCase> cases = {
      {"example, nested message asked for",
       ptest::type("M"),
       wire::fromHex("08 05 12 03 0A 01 78 18 01 18 02"),
       {{"n"}},
       3},
      {"example, only a nested field",
       ptest::type("M"),
       wire::fromHex("08 05 12 03 0A 01 78 18 01 18 02"),
       {{"n", "d"}, {"r"}},
       3},
      {"nothing asked for", ptest::type("M"), wire::fromHex("08 05 12 03 0A 01 78"), {}, 0},
      {"failing body", ptest::type("M"), wire::fromHex("08 05 12 03 0A 01 78 48 01"), {{"a"}}, 1},
  };
  for (uint64_t seed = 1; seed <= 40; ++seed) {
    cases.push_back({"random rich",
                     richContext,
                     tarn_test::randomBody(rich, seed, 3),
                     {{"f_message"},
                      {"r_branch", "leaf"},
                      {"tree", "child", "count"},
                      {"p_sint32"},
                      {"d_string"}},
                     -1});
  }
  for (const auto& c : cases) checkPartial(c);
}

}  // namespace

// The stand-in host's value set as the merge, tarnpb and the other tests read
// it: consecutive indexes, one key slot per hash naming its first entry, the
// chaining of repeated hashes through _array/_last/_arrayCount, growth,
// find-set filtering, and clearing for reuse.
#include <gtest/gtest.h>

#include <map>
#include <utility>
#include <vector>

#include "module_fixture.h"
#include "tarn/tarn_xpath_hash_set.h"

namespace {

using tarn_test::INV;

// One submission: the path hash and the parent index the module would send.
struct Submit {
  uint32_t hash;
  uint32_t parent = INV;
};

// What the set holds for one stored entry, beyond the submitted record.
struct Kept {
  uint32_t hash, array, last, arrayCount;
};

struct StoreCase {
  const char* name;
  std::vector<uint32_t> find;  // hashes a partial parse asks for; empty: full parse
  std::vector<Submit> submits;
  std::vector<uint32_t> indexes;  // what each submission returned
  std::vector<Kept> kept;
  std::map<uint32_t, uint32_t> keys;  // hash -> the index its slot names
  uint32_t bucketCount;
};

uint32_t submit(tarn_host::ValueSet& set_, const tarn::tarn_xpath_hash_set* pFind_,
                const Submit& s_, uint32_t n_) {
  tarn_message_value_set_entry e = {};
  e.hash = s_.hash;
  e.parent = s_.parent;
  e.first_child = e.next_sibling = INV;
  // The module's own values in the host's fields must not survive the copy.
  e.array = e.last = e.array_count = 0xABABABAB;
  e.raw_bytes_length = 100 + n_;
  tarn_message_value_set_entry_set_long(&e, -static_cast<int64_t>(n_));
  return tarn_message_xpath_update(set_.handle(), pFind_, &e);
}

TEST(ValueSet, StoresChainsAndKeysEntriesExactly) {
  const std::vector<StoreCase> cases = {
      {"distinct hashes, one colliding with another's home slot",
       {},
       {{1}, {17}, {7}},
       {0, 1, 2},
       {{1, 0, 0, 1}, {17, 0, 1, 1}, {7, 0, 2, 1}},
       {{1, 0}, {17, 1}, {7, 2}},
       16},
      {"repeated hashes chain to their first entry",
       {},
       {{3}, {5}, {3}, {5}, {5}},
       {0, 1, 2, 3, 4},
       {{3, 0, 2, 2}, {5, 0, 4, 3}, {3, 0, 2, 0}, {5, 1, 3, 0}, {5, 1, 4, 0}},
       {{3, 0}, {5, 1}},
       8},
      {"hash 0 is stored without a key",
       {},
       {{0}, {7}, {0}},
       {0, 1, 2},
       {{0, 0, 0, 1}, {7, 0, 1, 1}, {0, 0, 2, 1}},
       {{7, 1}},
       8},
      {"a table a quarter full takes repeats without growing",
       {},
       {{1}, {2}, {2}},
       {0, 1, 2},
       {{1, 0, 0, 1}, {2, 0, 2, 2}, {2, 1, 2, 0}},
       {{1, 0}, {2, 1}},
       8},
      {"a third key doubles the table, a fifth doubles it again",
       {},
       {{1}, {2}, {17}, {4}, {33}},
       {0, 1, 2, 3, 4},
       {{1, 0, 0, 1}, {2, 0, 1, 1}, {17, 0, 2, 1}, {4, 0, 3, 1}, {33, 0, 4, 1}},
       {{1, 0}, {2, 1}, {17, 2}, {4, 3}, {33, 4}},
       32},
      // Asked for 20: its entry and its child are kept; 21 at the top and the
      // child of a rejected entry are not.
      {"a find set keeps what it names and the children of kept entries",
       {20},
       {{21}, {20}, {22, 1}, {23, INV}, {24, INV}},
       {INV, 0, 1, INV, INV},
       {{20, 0, 0, 1}, {22, 0, 1, 1}},
       {{20, 0}, {22, 1}},
       8},
  };
  for (const StoreCase& c : cases) {
    SCOPED_TRACE(c.name);
    tarn::tarn_xpath_hash_set find;
    for (uint32_t h : c.find) find.insert(h);
    tarn_host::ValueSet set;
    std::vector<uint32_t> indexes;
    for (size_t i = 0; i < c.submits.size(); ++i)
      indexes.push_back(
          submit(set, c.find.empty() ? nullptr : &find, c.submits[i], static_cast<uint32_t>(i)));
    EXPECT_EQ(c.indexes, indexes);
    ASSERT_EQ(c.kept.size(), set.size());
    for (uint32_t i = 0; i < set.size(); ++i) {
      const tarn_message_value_set_entry& e = set[i];
      EXPECT_EQ(&e, tarn_message_xpath_get(set.handle(), i));
      const Kept& k = c.kept[i];
      EXPECT_EQ(k.hash, e.hash) << i;
      EXPECT_EQ(k.array, e.array) << i;
      EXPECT_EQ(k.last, e.last) << i;
      EXPECT_EQ(k.arrayCount, e.array_count) << i;
      // The rest of the record is the module's, copied as submitted.
      const uint32_t n = e.raw_bytes_length - 100;
      EXPECT_EQ(c.indexes[n], i);
      EXPECT_EQ(-static_cast<int64_t>(n), e.l);
      EXPECT_EQ(18, e.value_mask);
      EXPECT_EQ(c.submits[n].parent, e.parent);
      EXPECT_EQ(INV, e.next_sibling);
    }
    EXPECT_EQ(nullptr, tarn_message_xpath_get(set.handle(), set.size()));
    std::map<uint32_t, uint32_t> keys;
    const auto& impl = set.impl();
    for (uint32_t slot = 0; slot < impl._bucketCount; ++slot)
      if (impl._pKeys[slot]._hash != 0)
        keys[impl._pKeys[slot]._hash] = impl._pKeys[slot]._valueIndex;
    EXPECT_EQ(c.keys, keys);
    EXPECT_EQ(c.bucketCount, impl._bucketCount);
    EXPECT_EQ(c.keys.size(), impl._keyCount);

    // Cleared, the set keeps its table size and numbers from 0 again.
    set.clear();
    EXPECT_EQ(0u, set.size());
    for (const auto& key : c.keys) EXPECT_EQ(nullptr, set.set().fastFind(key.first));
    EXPECT_EQ(c.bucketCount, impl._bucketCount);
    EXPECT_EQ(0u, submit(set, nullptr, {5}, 0));
    EXPECT_EQ(1u, submit(set, nullptr, {5}, 1));
    EXPECT_EQ(0u, set[1].array);
    EXPECT_EQ(2u, set[0].array_count);
  }
}

TEST(ValueSet, ManyKeysAndEntriesSurviveGrowth) {
  // 3000 entries over 1000 hashes, each hash three times: the key table and
  // the value array grow many times over while earlier indexes keep their
  // entries and every key keeps naming its first entry.
  tarn_host::ValueSet set;
  for (uint32_t round = 0; round < 3; ++round)
    for (uint32_t h = 1; h <= 1000; ++h)
      ASSERT_EQ(round * 1000 + h - 1,
                submit(set, nullptr, {h * 0x9E3779B1u}, round * 1000 + h - 1));
  EXPECT_EQ(2048u, set.impl()._bucketCount);
  for (uint32_t h = 1; h <= 1000; ++h) {
    const tarn::tarn_xpath_value* pFirst = set.set().fastFind(h * 0x9E3779B1u);
    ASSERT_EQ(tarn_message_xpath_get(set.handle(), h - 1), pFirst->entry()) << h;
    EXPECT_EQ(3u, pFirst->_arrayCount);
    EXPECT_EQ(2000 + h - 1, pFirst->_last);
    EXPECT_EQ(h - 1, set[1000 + h - 1].array);
    EXPECT_EQ(-static_cast<int64_t>(2000 + h - 1), set[2000 + h - 1].l);
  }
}

TEST(ValueSet, KeyTableSizeFollowsTheDistinctPaths) {
  // Up to 16 keys the table is kept at most a quarter full, then at most half
  // full: a message with a few dozen paths gets a sparse table, a large one a
  // table that a clear can still wipe cheaply.
  const std::pair<uint32_t, uint32_t> rows[] = {{2, 8},    {3, 16},   {4, 16},    {5, 32},
                                                {8, 32},   {9, 64},   {16, 64},   {17, 128},
                                                {64, 128}, {65, 256}, {128, 256}, {129, 512}};
  for (const auto& [keys, buckets] : rows) {
    tarn_host::ValueSet set;
    for (uint32_t k = 1; k <= keys; ++k)
      ASSERT_EQ(k - 1, submit(set, nullptr, {k * 0x9E3779B1u}, k - 1));
    EXPECT_EQ(buckets, set.impl()._bucketCount) << keys << " keys";
    EXPECT_EQ(keys, set.impl()._keyCount);
    // A repeat of every hash adds entries, never slots.
    for (uint32_t k = 1; k <= keys; ++k) submit(set, nullptr, {k * 0x9E3779B1u}, keys + k - 1);
    EXPECT_EQ(buckets, set.impl()._bucketCount) << keys << " keys";
  }
}

}  // namespace

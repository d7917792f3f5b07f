// The stand-in host's value-set storage and the inline lookups a module
// compiles against it: probing, wrap-around, growth, repeated hashes, find sets.
#include "host/value_set.h"

#include <gtest/gtest.h>

#include <vector>

#include "tarn/tarn_xpath_value_set.h"
#include "util/base/hybrid_worklist.h"

namespace {

using tarn_host::ValueSet;
using KeyData = tarn::tarn_xpath_value_set::key_data;

const uint32_t kInvalid = tarn_message_value_invalid_index;

uint32_t store(ValueSet& set, uint32_t hash, uint32_t parent = kInvalid,
               const tarn::tarn_xpath_hash_set* find = nullptr) {
  tarn_message_value_set_entry entry = {};
  entry.hash = hash;
  entry.parent = parent;
  entry.first_child = entry.next_sibling = kInvalid;
  tarn_message_value_set_entry_set_long(&entry, hash * 10);
  return tarn_message_xpath_update(set.handle(), find, &entry);
}

int slotOf(const ValueSet& set, uint32_t hash) {
  const KeyData* key = set.impl().find(hash);
  return key ? static_cast<int>(key - set.impl()._pKeys) : -1;
}

TEST(ValueSetLookup, ProbesFromTheHomeSlotAndWraps) {
  ValueSet set;
  ASSERT_EQ(8u, set.impl()._bucketCount);
  // Home slots under mask 7: 1 -> 1, 9 -> 1 (collides), 7 -> 7, 15 -> 7 (wraps to 0).
  for (uint32_t hash : {1u, 9u, 7u, 15u}) store(set, hash);
  ASSERT_EQ(8u, set.impl()._bucketCount) << "four keys must not grow an eight-slot table";

  struct Row {
    uint32_t hash;
    int slot;
  } rows[] = {{1, 1}, {9, 2}, {7, 7}, {15, 0}, {23, -1} /* 7,0,1,2 then empty 3 */, {4, -1}};
  for (const Row& row : rows) {
    SCOPED_TRACE(row.hash);
    EXPECT_EQ(row.slot, slotOf(set, row.hash));
  }
}

TEST(ValueSetLookup, FastFindAgreesWithTheHostsGet) {
  ValueSet set;
  std::vector<uint32_t> indexes;
  for (uint32_t hash = 1; hash <= 1000; ++hash) indexes.push_back(store(set, hash * 2654435761u));
  ASSERT_EQ(1000u, set.size());
  EXPECT_LE(set.impl()._keyCount * 2, set.impl()._bucketCount)
      << "growth keeps the table half empty";
  for (uint32_t i = 0; i < 1000; ++i) {
    uint32_t hash = (i + 1) * 2654435761u;
    tarn::tarn_xpath_value* found = set.set().fastFind(hash);
    ASSERT_NE(nullptr, found);
    EXPECT_EQ(static_cast<void*>(found), tarn_message_xpath_get(set.handle(), indexes[i]));
    EXPECT_EQ(found, set.set().getBySlot(indexes[i]));
    EXPECT_EQ(int64_t{hash} * 10 % (int64_t{1} << 32), found->_lval % (int64_t{1} << 32));
  }
  EXPECT_EQ(nullptr, set.set().fastFind(12345));
  EXPECT_EQ(nullptr, set.set().fastFind(0)) << "0 is the empty-slot mark, never a path hash";
}

TEST(ValueSetLookup, AFullTableStillEnds) {
  // The host never fills its table, but a lookup must end on one that is full.
  KeyData keys[4] = {{5, 0}, {6, 1}, {7, 2}, {8, 3}};
  tarn::tarn_xpath_value values[4] = {};
  tarn::tarn_xpath_value_set::value_set_impl impl = {};
  impl._bucketCount = 4;
  impl._bucketMask = 3;
  impl._pKeys = keys;
  impl._pValues = values;
  tarn::tarn_xpath_value_set set{&impl};
  EXPECT_EQ(nullptr, impl.find(9));
  EXPECT_EQ(&keys[3], impl.find(8));
  EXPECT_EQ(&values[2], set.fastFind(7));
}

TEST(ValueSetStorage, RepeatedHashKeepsTheFirstOccurrenceInTheKeyTable) {
  ValueSet set;
  EXPECT_EQ(0u, store(set, 42));
  EXPECT_EQ(1u, store(set, 43));
  EXPECT_EQ(2u, store(set, 42));
  EXPECT_EQ(3u, store(set, 42));
  EXPECT_EQ(set.set().getBySlot(0), set.set().fastFind(42));
  EXPECT_EQ(3u, set[0].array_count);
  EXPECT_EQ(3u, set[0].last);
  EXPECT_EQ(0u, set[3].array);
  EXPECT_EQ(2u, set.impl()._keyCount);

  set.clear();
  EXPECT_EQ(0u, set.size());
  EXPECT_EQ(nullptr, set.set().fastFind(42));
  EXPECT_EQ(0u, store(set, 42)) << "a cleared set numbers from 0 again";
}

TEST(ValueSetStorage, FindSetKeepsAskedHashesAndTheirSubtrees) {
  ValueSet set;
  tarn::tarn_xpath_hash_set find;
  find.insert(100);
  uint32_t a = store(set, 99, kInvalid, &find);
  uint32_t b = store(set, 100, kInvalid, &find);
  uint32_t child = store(set, 7, b, &find);
  uint32_t orphan = store(set, 8, a, &find);
  EXPECT_EQ(kInvalid, a);
  EXPECT_EQ(0u, b);
  EXPECT_EQ(1u, child);
  EXPECT_EQ(kInvalid, orphan);
  EXPECT_EQ(2u, set.size());
}

TEST(ValueSetStorage, DiscardModeNumbersButKeepsNothing) {
  ValueSet set(tarn_host::default_base_hash, ValueSet::Mode::discard);
  EXPECT_EQ(0u, store(set, 5));
  EXPECT_EQ(1u, store(set, 5));
  EXPECT_NE(nullptr, tarn_message_xpath_get(set.handle(), 1));
  EXPECT_EQ(0u, set.size());
  EXPECT_EQ(2u, set.submitted());
}

TEST(PathHash, PureSeededAndNeverZero) {
  const char name[] = "price";
  uint32_t a = tarn_message_xpath_hash_string(name, 5, 1);
  EXPECT_EQ(a, tarn_message_xpath_hash_string(name, 5, 1));
  EXPECT_NE(a, tarn_message_xpath_hash_string(name, 5, 2));
  EXPECT_NE(a, tarn_message_xpath_hash_string(name, 4, 1));
  EXPECT_NE(a, tarn_message_xpath_hash_add_separator(a));
  for (uint32_t seed = 0; seed < 100000; ++seed)
    ASSERT_NE(0u, tarn_message_xpath_hash_string(nullptr, 0, seed * 7919u)) << seed;
}

TEST(HybridWorklist, CrossesFromInlineToHeapAndKeepsOrder) {
  for (unsigned n = 0; n <= 40; ++n) {
    tarn::hybrid_worklist<std::pair<int, int>, 16> list;
    for (unsigned i = 0; i < n; ++i) list.push_back({static_cast<int>(i), static_cast<int>(2 * i)});
    SCOPED_TRACE(n);
    ASSERT_EQ(n, list.size());
    EXPECT_EQ(n > 16, list.onHeap());
    EXPECT_EQ(n <= 16 ? 16u : n <= 32 ? 32u : 64u, list.capacity());
    for (unsigned i = 0; i < n; ++i) EXPECT_EQ(static_cast<int>(2 * i), list[i].second);
  }
}

}  // namespace

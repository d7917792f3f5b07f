// Value sets whose links or keys the parser would never produce: the merge
// must stay inside both sets and inside the room the host's rule gives, and
// must end.
#include <gtest/gtest.h>

#include <functional>

#include "module_fixture.h"
#include "value_set_builder.h"
#include "wire.h"

namespace {

using tarn_test::SetBuilder;
using tarn_test::Shape;
using wire::Body;
using wire::fromHex;
using wire::hex;

const uint32_t invalid = tarn_message_value_invalid_index;

// Points the key of hash_ in set_ at another entry index.
void redirectKey(tarn_host::ValueSet& set_, uint32_t hash_, uint32_t index_) {
  auto* pImpl = set_.set()._pValueSetImpl;
  for (uint32_t i = 0; i < pImpl->_bucketCount; ++i)
    if (pImpl->_pKeys[i]._hash == hash_) pImpl->_pKeys[i]._valueIndex = index_;
}

struct DamageCase {
  const char* name;
  std::string update;
  std::string stored;
  Shape shape;
  std::function<void(SetBuilder& update, SetBuilder& stored, tarn_host::ValueSet& updateSet,
                     tarn_host::ValueSet& storedSet)>
      damage;
  std::string expected;  // hex
};

std::vector<DamageCase> damageCases() {
  const Shape nested{{3}, {}, {}};
  return {
      {"SiblingLinkBackwardsEndsTheWalk", Body().varint(1, 1).varint(2, 2).varint(4, 4), "",
       Shape(), [](SetBuilder& u, SetBuilder&, auto&, auto&) { u.at(2).next_sibling = 1; },
       "08 01 10 02 20 04"},
      {"SiblingLinkToItselfEndsTheWalk", "", Body().varint(1, 1).varint(2, 2), Shape(),
       [](SetBuilder&, SetBuilder& s, auto&, auto&) { s.at(1).next_sibling = 1; }, "08 01 10 02"},
      {"SiblingLinkOutOfTheSetEndsTheWalk", "", Body().varint(1, 1).varint(2, 2), Shape(),
       [](SetBuilder&, SetBuilder& s, auto&, auto&) { s.at(0).next_sibling = 1000; }, "08 01"},
      {"ArrayMarkerIsNoChild", fromHex("1A 02 08 05"), fromHex("1A 04 08 04 10 06"), nested,
       [](SetBuilder&, SetBuilder& s, auto&, auto&) {
         s.at(0).first_child = tarn_message_value_array_child;
       },
       "1A 02 08 05"},
      // Entries: 0 field 2, 1 field 4, 2 field 3, 3 its field 1.
      {"ChildLinkBackwardsIsNoChild", fromHex("10 01 20 01 1A 02 08 05"),
       fromHex("1A 04 08 04 10 06"), nested,
       [](SetBuilder& u, SetBuilder&, auto&, auto&) { u.at(2).first_child = 1; },
       "10 01 20 01 1A 02 08 05"},
      {"ChildLinkToItselfIsNoChild", fromHex("1A 02 08 05"), fromHex("20 01 1A 04 08 04 10 06"),
       nested, [](SetBuilder&, SetBuilder& s, auto&, auto&) { s.at(1).first_child = 1; },
       "1A 02 08 05 20 01"},
      {"KeyPointingOutOfTheSetFindsNothing", Body().varint(1, 1), Body().varint(1, 9), Shape(),
       [](SetBuilder&, SetBuilder&, auto& updateSet, auto&) {
         redirectKey(updateSet, updateSet[0].hash, 77);
       },
       "08 01 08 09"},
      {"StoredMessageWithoutBytesIsReplacedWhole", fromHex("1A 02 08 05"),
       fromHex("1A 04 08 04 10 06 20 01"), nested,
       [](SetBuilder&, SetBuilder& s, auto&, auto&) {
         s.at(0).raw_bytes = nullptr;
         s.at(0).raw_bytes_length = 0;
       },
       "1A 02 08 05 20 01"},
      {"StoredTagCutOffIsReplacedWhole", fromHex("1A 02 08 05"), fromHex("1A 04 08 04 10 06"),
       nested,
       [](SetBuilder&, SetBuilder& s, auto&, auto&) {
         s.at(0).raw_bytes = s.keep(fromHex("9A"));  // a tag that never ends
         s.at(0).raw_bytes_length = 1;
       },
       "1A 02 08 05"},
  };
}

void PrintTo(const DamageCase& c, std::ostream* os) { *os << c.name; }

class MergeDamaged : public ::testing::TestWithParam<DamageCase> {};

TEST_P(MergeDamaged, StaysInsideTheSetsAndTheRoom) {
  const DamageCase& c = GetParam();
  tarn_host::ValueSet update, stored;
  SetBuilder updateBuilder(update), storedBuilder(stored);
  updateBuilder.fill(c.update, c.shape);
  storedBuilder.fill(c.stored, c.shape);
  c.damage(updateBuilder, storedBuilder, update, stored);
  const tarn_test::MergeRun run = tarn_test::runMerge(update, stored);
  ASSERT_TRUE(run.ok);
  EXPECT_EQ(c.expected, hex(run.output));
  EXPECT_EQ(0u, update.size());
}

INSTANTIATE_TEST_SUITE_P(Cases, MergeDamaged, ::testing::ValuesIn(damageCases()),
                         [](const ::testing::TestParamInfo<DamageCase>& info) {
                           return std::string(info.param.name);
                         });

// Messages nested inside one another `levels` deep in field 1, the innermost
// holding `leaf`.
std::string nest(unsigned levels_, const Body& leaf_) {
  std::string body = leaf_;
  for (unsigned i = 0; i < levels_; ++i) body = Body().str(1, body);
  return body;
}

TEST(MergeDepth, MergesStopAtTheDepthLimit) {
  const Shape shape{{1}, {}, {}};
  for (unsigned levels : {50u, 99u, 100u, 300u}) {
    SCOPED_TRACE(levels);
    tarn_host::ValueSet update, stored;
    SetBuilder updateBuilder(update), storedBuilder(stored);
    const std::string updateBody = nest(levels, Body().varint(2, 1));
    updateBuilder.fill(updateBody, shape);
    storedBuilder.fill(nest(levels, Body().varint(3, 1)), shape);
    const tarn_test::MergeRun run = tarn_test::runMerge(update, stored);
    ASSERT_TRUE(run.ok);
    // Up to 100 levels both innermost fields meet; deeper, the update's message
    // at the limit replaces the stored one whole.
    const std::string merged = nest(levels, Body().varint(2, 1).varint(3, 1));
    EXPECT_EQ(hex(levels <= 100 ? merged : updateBody), hex(run.output));
  }
}

TEST(MergeWork, SharedSubtreesDoNotMultiplyTheWork) {
  // Two entries per level, both naming the next level as their children: a
  // walk that trusted the links would merge 2^levels subtrees.
  const unsigned levels = 40;
  tarn_host::ValueSet update, stored;
  SetBuilder updateBuilder(update), storedBuilder(stored);
  for (SetBuilder* pBuilder : {&updateBuilder, &storedBuilder}) {
    // Separate byte ranges, so that the pair is not taken for a packed field.
    const char* pRawA = pBuilder->keep(fromHex("0A 00"));
    const char* pRawB = pBuilder->keep(fromHex("0A 00"));
    uint32_t parent = invalid;
    for (unsigned level = 0; level < levels; ++level) {
      const uint32_t a = pBuilder->add(parent, "f1", pRawA, 2);
      const uint32_t b = pBuilder->add(parent, "f1", pRawB, 2);
      if (level > 0) pBuilder->at(b - 2).first_child = a;  // the previous level's second entry
      parent = a;
    }
  }
  const tarn_test::MergeRun run = tarn_test::runMerge(update, stored);
  ASSERT_TRUE(run.ok);
  EXPECT_GT(run.output.size(), 0u);
  EXPECT_EQ(0u, update.size());
}

}  // namespace

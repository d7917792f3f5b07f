// The delta-publish merge on value sets the module's parser fills: byte-exact outputs for the merge
// rules, the segment's accounting, the update set cleared, and damaged sets that must neither crash
// nor loop.
#include <gtest/gtest.h>

#include <deque>
#include <functional>

#include "module_fixture.h"
#include "wire.h"

namespace {

using tarn_test::INV;
using tarn_test::runMerge;
using wire::Body;
using wire::fromHex;
using wire::hex;

// Sets as the module's parser fills them: each body parsed as one type of
// merge.proto, whose field N is named fN. The bodies are kept alive as long
// as the sets point into them.
class Sets {
 public:
  // Plain: fields 3 and 5 nest; Packed: 4 and 6 are packed as well;
  // Defaults: field 2, and field 1 in field 3, get entries without bytes;
  // Chain: field 1 nests.
  // whole_: whether the parse succeeds; a failed parse leaves what it stored.
  void parse(tarn_host::ValueSet& set_, const char* type_, const std::string& body_,
             bool whole_ = true) {
    const auto context = tarn_test::context("merge.proto", std::string("tarn.merge.") + type_);
    EXPECT_EQ(whole_ ? TARN_SUCCESS : TARN_FAILURE,
              tarn_test::parse(context, keepString(body_), set_))
        << type_ << " " << hex(body_);
  }
  const char* keep(const std::string& bytes_) { return keepString(bytes_).data(); }

 private:
  const std::string& keepString(const std::string& bytes_) {
    _kept.push_back(bytes_);
    return _kept.back();
  }
  std::deque<std::string> _kept;
};

tarn_message_value_set_entry& at(tarn_host::ValueSet& set_, uint32_t index_) {
  return *tarn_message_xpath_get(set_.handle(), index_);
}

using Damage =
    std::function<void(tarn_host::ValueSet& update, tarn_host::ValueSet& stored, Sets& sets)>;

struct MergeCase {
  const char* name;
  std::string update, stored;
  const char* type;
  std::string expected;
  Damage damage = nullptr;
};

std::string big(size_t n) { return std::string(n, 'q'); }

TEST(Merge, ExamplesGiveExactBytesInsideTheHostsRoom) {
  const char *const plain = "Plain", *const packed = "Packed", *const defaults = "Defaults";
  const std::vector<MergeCase> cases = {
      {"nested messages merge under the stored tag", fromHex("1A 02 08 05"),
       fromHex("1A 04 08 04 10 06 22 01 78"), plain, fromHex("1A 04 08 05 10 06 22 01 78")},
      {"update fields first, stored fields after", Body().varint(2, 7), Body().str(1, "b").varint(2, 9),
       plain, Body().varint(2, 7).str(1, "b")},
      {"empty merged body is tag and zero", fromHex("1A 00"), fromHex("1A 00"),
       defaults, fromHex("1A 00")},
      // Inputs of 5 + 206 bytes guess a two-byte prefix; the body is 3 bytes.
      {"shorter prefix moves the body back", Body().msg(3, Body().str(1, "x")),
       Body().msg(3, Body().str(1, big(200))), plain, fromHex("1A 03 0A 01 78")},
      // Each update occurrence of 5 takes in the stored 100-byte field 2: the
      // body (214 bytes) outgrows the one-byte guess made from 10 + 106 bytes.
      {"longer prefix moves the body forward",
       Body().msg(3, Body().msg(5, Body().varint(1, 1)).msg(5, Body().varint(1, 2))),
       Body().msg(3, Body().msg(5, Body().str(2, big(100)))), plain,
       Body().msg(3, Body().msg(5, Body().varint(1, 1).str(2, big(100)))
                         .msg(5, Body().varint(1, 2).str(2, big(100))))},
      {"update entry without bytes keeps the stored field", Body().varint(1, 1), Body().varint(2, 9),
       defaults, Body().varint(1, 1).varint(2, 9)},
      {"repeated field replaced whole", Body().varint(2, 1).varint(2, 2),
       Body().varint(2, 7).varint(1, 0).varint(2, 8), plain,
       Body().varint(2, 1).varint(2, 2).varint(1, 0)},
      {"update packed field written once", Body().str(4, fromHex("01 02 03")),
       Body().str(4, fromHex("09")).varint(1, 5), packed, Body().str(4, fromHex("01 02 03")).varint(1, 5)},
      {"stored packed field copied once", Body().varint(1, 5), Body().str(4, fromHex("07 08 09")), packed,
       Body().varint(1, 5).str(4, fromHex("07 08 09"))},
      // Runs of 100, 37, 50 and 20 elements, each followed by another field
      // or ending its level or the set: each run is written once, whole.
      {"long packed runs written once each", Body().str(4, std::string(100, '\x01')).varint(1, 5),
       Body().str(4, std::string(37, '\x02')).str(6, fromHex("03 04 05")).varint(2, 9),
       packed,
       Body().str(4, std::string(100, '\x01')).varint(1, 5).str(6, fromHex("03 04 05")).varint(2, 9)},
      {"packed run ending a nested level", Body().msg(3, Body().varint(1, 1)),
       Body().msg(3, Body().str(4, std::string(50, '\x05'))).str(4, std::string(20, '\x06')),
       packed,
       Body().msg(3, Body().varint(1, 1).str(4, std::string(50, '\x05'))).str(4, std::string(20, '\x06'))},
      {"two blocks of one packed field both written", Body().str(4, fromHex("01 02")).str(4, fromHex("03")),
       Body().str(4, fromHex("09 09 09")).varint(1, 1), packed,
       Body().str(4, fromHex("01 02")).str(4, fromHex("03")).varint(1, 1)},
      {"repeated nested merges against the first stored occurrence",
       Body().msg(5, Body().varint(1, 1)).msg(5, Body().varint(1, 2)),
       Body().msg(5, Body().varint(1, 7).varint(2, 8)).msg(5, Body().varint(2, 9)), plain,
       Body().msg(5, Body().varint(1, 1).varint(2, 8)).msg(5, Body().varint(1, 2).varint(2, 8))},
      {"empty update is the stored message", "", Body().varint(1, 1).msg(3, Body().varint(1, 2)), plain,
       Body().varint(1, 1).msg(3, Body().varint(1, 2))},
      {"three levels deep", Body().msg(3, Body().msg(5, Body().varint(1, 9))),
       Body().msg(3, Body().varint(2, 4).msg(5, Body().varint(1, 1).varint(2, 2))), plain,
       Body().msg(3, Body().msg(5, Body().varint(1, 9).varint(2, 2)).varint(2, 4))},
      // Sets the parser would never produce: the walk ends and stays inside both.
      {"sibling link backwards", Body().varint(1, 1).varint(2, 2).varint(4, 4), "", plain,
       fromHex("08 01 10 02 20 04"), [](auto& u, auto&, auto&) { at(u, 2).next_sibling = 1; }},
      {"sibling link to itself", "", Body().varint(1, 1).varint(2, 2), plain, fromHex("08 01 10 02"),
       [](auto&, auto& s, auto&) { at(s, 1).next_sibling = 1; }},
      {"sibling link out of the set", "", Body().varint(1, 1).varint(2, 2), plain, fromHex("08 01"),
       [](auto&, auto& s, auto&) { at(s, 0).next_sibling = 1000; }},
      {"array marker is no child", fromHex("1A 02 08 05"), fromHex("1A 04 08 04 10 06"), plain,
       fromHex("1A 02 08 05"),
       [](auto&, auto& s, auto&) { at(s, 0).first_child = tarn_message_value_array_child; }},
      {"child link to itself", fromHex("1A 02 08 05"), fromHex("20 01 1A 04 08 04 10 06"), plain,
       fromHex("1A 02 08 05 20 01"), [](auto&, auto& s, auto&) { at(s, 1).first_child = 1; }},
      {"key pointing out of the set", Body().varint(1, 1), Body().varint(1, 9), plain,
       fromHex("08 01 08 09"),
       [](tarn_host::ValueSet& u, auto&, auto&) {
         auto* pImpl = u.set()._pValueSetImpl;
         for (uint32_t i = 0; i < pImpl->_bucketCount; ++i)
           if (pImpl->_pKeys[i]._hash == u[0].hash) pImpl->_pKeys[i]._valueIndex = 77;
       }},
      {"stored tag cut off", fromHex("1A 02 08 05"), fromHex("1A 04 08 04 10 06"), plain,
       fromHex("1A 02 08 05"), [](auto&, auto& s, Sets& sets) {
         at(s, 0).raw_bytes = sets.keep(fromHex("9A"));  // a tag that never ends
         at(s, 0).raw_bytes_length = 1;
       }},
  };
  for (const MergeCase& c : cases) {
    SCOPED_TRACE(c.name);
    tarn_host::ValueSet update, stored;
    Sets sets;
    sets.parse(update, c.type, c.update);
    sets.parse(stored, c.type, c.stored);
    if (c.damage) c.damage(update, stored, sets);
    const uint32_t storedSize = stored.size();
    EXPECT_EQ(hex(c.expected), hex(runMerge(update, stored)));
    EXPECT_EQ(0u, update.size());
    EXPECT_EQ(storedSize, stored.size());
  }
}

TEST(Merge, AppendsBehindTheSegmentsContentAndReturnsTheWholeCount) {
  // 25 bytes of merged output behind 10 bytes already in the segment.
  tarn_host::ValueSet update, stored;
  Sets sets;
  sets.parse(update, "Plain", Body().str(1, std::string(10, 'u')));
  sets.parse(stored, "Plain", Body().str(2, std::string(11, 's')));
  int returned = 0;
  EXPECT_EQ(hex(Body().str(1, std::string(10, 'u')).str(2, std::string(11, 's'))),
            hex(runMerge(update, stored, "0123456789", &returned)));
  EXPECT_EQ(35, returned);
}

TEST(Merge, DepthLimitAndSharedSubtreesEnd) {
  for (unsigned levels : {99u, 100u, 300u}) {
    tarn_host::ValueSet update, stored;
    Sets sets;
    const std::string updateBody = wire::nestedChain(levels, Body().varint(2, 1));
    // Past the parser's nesting limit the parse fails, and the sets hold the
    // 100 levels it stored: what a deeper set looks like to the merge.
    sets.parse(update, "Chain", updateBody, levels <= 100);
    sets.parse(stored, "Chain", wire::nestedChain(levels, Body().varint(3, 1)), levels <= 100);
    // Up to 100 levels both innermost fields meet; deeper, the update's
    // message at the limit replaces the stored one whole.
    const std::string merged = wire::nestedChain(levels, Body().varint(2, 1).varint(3, 1));
    EXPECT_EQ(hex(levels <= 100 ? merged : updateBody), hex(runMerge(update, stored))) << levels;
  }
  // Two entries per level, the second made to name the first one's children
  // as its own: a walk that trusted the links would merge 2^40 subtrees.
  tarn_host::ValueSet update, stored;
  std::string chain;
  for (int level = 0; level < 40; ++level) chain = Body().str(1, chain).str(1, "");
  Sets sets;
  for (tarn_host::ValueSet* pSet : {&update, &stored}) {
    sets.parse(*pSet, "Chain", chain);
    for (uint32_t i = 0; i < pSet->size(); ++i) {
      const uint32_t next = at(*pSet, i).next_sibling;
      if (next != INV) at(*pSet, next).first_child = at(*pSet, i).first_child;
    }
  }
  EXPECT_NE("!", runMerge(update, stored));
  EXPECT_EQ(0u, update.size());
}

}  // namespace

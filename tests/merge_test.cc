// The delta-publish merge on value sets built by hand, the way the parser
// fills them: byte-exact outputs for the merge rules, the segment's
// accounting, the update set cleared, and damaged sets that must neither
// crash nor loop.
#include <gtest/gtest.h>

#include <functional>
#include <map>
#include <set>

#include "module_fixture.h"
#include "modules/message_type/protobuf/wire_format.h"
#include "wire.h"

namespace {

using tarn_test::INV;
using tarn_test::runMerge;
using wire::Body;
using wire::fromHex;
using wire::hex;

// A schema-less reading of small hand-made bodies: field N is named "fN"; a
// length-delimited field is a nested message when listed in `messages`, a
// packed block of varints (one entry per element, each carrying the whole
// field) when listed in `packed`; `defaults` lists per level (the message's
// field number, 0 for the top) the fields that get an entry without bytes
// when absent.
struct Shape {
  std::set<uint32_t> messages, packed;
  std::map<uint32_t, std::vector<uint32_t>> defaults;
};

class SetBuilder {
 public:
  explicit SetBuilder(tarn_host::ValueSet& set_) : _set(set_) {}

  void fill(const std::string& body_, const Shape& shape_) {
    const char* p = keep(body_);
    level(p, p + body_.size(), INV, 0, shape_);
  }
  // Stores an entry named name_ as the newest child of parent_ (INV: top level).
  uint32_t add(uint32_t parent_, const std::string& name_, const char* pRaw_, uint32_t length_) {
    tarn_message_value_set_entry e = {};
    e.hash = tarn_message_xpath_hash_string(
        name_.data(), name_.size(),
        parent_ == INV ? tarn_message_xpath_hash_get_base(_set.handle())
                       : tarn_message_xpath_hash_add_separator(at(parent_).hash));
    e.raw_bytes = pRaw_;
    e.raw_bytes_length = length_;
    e.parent = parent_;
    e.first_child = e.next_sibling = INV;
    const uint32_t index = tarn_message_xpath_update(_set.handle(), nullptr, &e);
    uint32_t& newest = _newest.emplace(parent_, INV).first->second;
    if (newest != INV) at(newest).next_sibling = index;
    if (parent_ != INV && at(parent_).first_child == INV) at(parent_).first_child = index;
    return newest = index;
  }
  const char* keep(const std::string& bytes_) {
    _kept.push_back(std::make_unique<std::string>(bytes_));
    return _kept.back()->data();
  }
  tarn_message_value_set_entry& at(uint32_t index_) {
    return *tarn_message_xpath_get(_set.handle(), index_);
  }

 private:
  // The wire reader is the module's own: these bodies are well-formed inputs,
  // and the expected bytes are written out by hand.
  static uint64_t varint(const char*& p_, const char* end_) {
    const wire_body body = {p_, end_};
    wire_cursor in(body);
    const uint64_t value = in.varintOrZero();
    p_ = in.position();
    return value;
  }
  void level(const char* p_, const char* end_, uint32_t parent_, uint32_t key_, const Shape& s_) {
    std::set<uint32_t> seen;
    while (p_ < end_) {
      const char* start = p_;
      const uint64_t tag = varint(p_, end_);
      const uint32_t field = static_cast<uint32_t>(tag >> 3);
      const std::string name = "f" + std::to_string(field);
      seen.insert(field);
      const uint64_t length = (tag & 7) == 2 ? varint(p_, end_) : 0;
      const char* payload = p_;
      p_ += (tag & 7) == 1 ? 8 : (tag & 7) == 5 ? 4 : length;
      if ((tag & 7) == 0) varint(p_, end_);
      const uint32_t raw = static_cast<uint32_t>(p_ - start);
      if ((tag & 7) == 2 && s_.messages.count(field)) {
        level(payload, p_, add(parent_, name, start, raw), field, s_);
      } else if ((tag & 7) == 2 && s_.packed.count(field)) {
        for (const char* q = payload; q < p_; varint(q, p_)) add(parent_, name, start, raw);
      } else {
        add(parent_, name, start, raw);
      }
    }
    auto defaults = s_.defaults.find(key_);
    if (defaults == s_.defaults.end()) return;
    for (uint32_t field : defaults->second)
      if (!seen.count(field)) add(parent_, "f" + std::to_string(field), nullptr, 0);
  }

  tarn_host::ValueSet& _set;
  std::vector<std::unique_ptr<std::string>> _kept;
  std::map<uint32_t, uint32_t> _newest;  // parent index -> newest child
};

using Damage = std::function<void(SetBuilder& update, SetBuilder& stored, tarn_host::ValueSet& u)>;

struct MergeCase {
  const char* name;
  std::string update, stored;
  Shape shape;
  std::string expected;
  Damage damage = nullptr;
};

std::string big(size_t n) { return std::string(n, 'q'); }

TEST(Merge, ExamplesGiveExactBytesInsideTheHostsRoom) {
  const Shape flat, n3{{3}, {}, {}}, n35{{3, 5}, {}, {}}, p4{{}, {4}, {}};
  const std::vector<MergeCase> cases = {
      {"nested messages merge under the stored tag", fromHex("1A 02 08 05"),
       fromHex("1A 04 08 04 10 06 22 01 78"), n3, fromHex("1A 04 08 05 10 06 22 01 78")},
      {"update fields first, stored fields after", Body().varint(2, 7), Body().str(1, "b").varint(2, 9),
       flat, Body().varint(2, 7).str(1, "b")},
      {"empty merged body is tag and zero", fromHex("1A 00"), fromHex("1A 00"),
       Shape{{3}, {}, {{3, {1}}}}, fromHex("1A 00")},
      // Inputs of 5 + 206 bytes guess a two-byte prefix; the body is 3 bytes.
      {"shorter prefix moves the body back", Body().msg(3, Body().str(1, "x")),
       Body().msg(3, Body().str(1, big(200))), n3, fromHex("1A 03 0A 01 78")},
      // Each update occurrence of 5 takes in the stored 100-byte field 2: the
      // body (214 bytes) outgrows the one-byte guess made from 10 + 106 bytes.
      {"longer prefix moves the body forward",
       Body().msg(3, Body().msg(5, Body().varint(1, 1)).msg(5, Body().varint(1, 2))),
       Body().msg(3, Body().msg(5, Body().str(2, big(100)))), n35,
       Body().msg(3, Body().msg(5, Body().varint(1, 1).str(2, big(100)))
                         .msg(5, Body().varint(1, 2).str(2, big(100))))},
      {"update entry without bytes keeps the stored field", Body().varint(1, 1), Body().varint(2, 9),
       Shape{{}, {}, {{0, {2}}}}, Body().varint(1, 1).varint(2, 9)},
      {"repeated field replaced whole", Body().varint(2, 1).varint(2, 2),
       Body().varint(2, 7).varint(1, 0).varint(2, 8), flat,
       Body().varint(2, 1).varint(2, 2).varint(1, 0)},
      {"update packed field written once", Body().str(4, fromHex("01 02 03")),
       Body().str(4, fromHex("09")).varint(1, 5), p4, Body().str(4, fromHex("01 02 03")).varint(1, 5)},
      {"stored packed field copied once", Body().varint(1, 5), Body().str(4, fromHex("07 08 09")), p4,
       Body().varint(1, 5).str(4, fromHex("07 08 09"))},
      // Runs of 100, 37, 50 and 20 elements, each followed by another field
      // or ending its level or the set: each run is written once, whole.
      {"long packed runs written once each", Body().str(4, std::string(100, '\x01')).varint(1, 5),
       Body().str(4, std::string(37, '\x02')).str(6, fromHex("03 04 05")).varint(2, 9),
       Shape{{}, {4, 6}, {}},
       Body().str(4, std::string(100, '\x01')).varint(1, 5).str(6, fromHex("03 04 05")).varint(2, 9)},
      {"packed run ending a nested level", Body().msg(3, Body().varint(1, 1)),
       Body().msg(3, Body().str(4, std::string(50, '\x05'))).str(4, std::string(20, '\x06')),
       Shape{{3}, {4}, {}},
       Body().msg(3, Body().varint(1, 1).str(4, std::string(50, '\x05'))).str(4, std::string(20, '\x06'))},
      {"two blocks of one packed field both written", Body().str(4, fromHex("01 02")).str(4, fromHex("03")),
       Body().str(4, fromHex("09 09 09")).varint(1, 1), p4,
       Body().str(4, fromHex("01 02")).str(4, fromHex("03")).varint(1, 1)},
      {"repeated nested merges against the first stored occurrence",
       Body().msg(5, Body().varint(1, 1)).msg(5, Body().varint(1, 2)),
       Body().msg(5, Body().varint(1, 7).varint(2, 8)).msg(5, Body().varint(2, 9)), Shape{{5}, {}, {}},
       Body().msg(5, Body().varint(1, 1).varint(2, 8)).msg(5, Body().varint(1, 2).varint(2, 8))},
      {"empty update is the stored message", "", Body().varint(1, 1).msg(3, Body().varint(1, 2)), n3,
       Body().varint(1, 1).msg(3, Body().varint(1, 2))},
      {"three levels deep", Body().msg(3, Body().msg(5, Body().varint(1, 9))),
       Body().msg(3, Body().varint(2, 4).msg(5, Body().varint(1, 1).varint(2, 2))), n35,
       Body().msg(3, Body().msg(5, Body().varint(1, 9).varint(2, 2)).varint(2, 4))},
      // Sets the parser would never produce: the walk ends and stays inside both.
      {"sibling link backwards", Body().varint(1, 1).varint(2, 2).varint(4, 4), "", flat,
       fromHex("08 01 10 02 20 04"), [](SetBuilder& u, SetBuilder&, auto&) { u.at(2).next_sibling = 1; }},
      {"sibling link to itself", "", Body().varint(1, 1).varint(2, 2), flat, fromHex("08 01 10 02"),
       [](SetBuilder&, SetBuilder& s, auto&) { s.at(1).next_sibling = 1; }},
      {"sibling link out of the set", "", Body().varint(1, 1).varint(2, 2), flat, fromHex("08 01"),
       [](SetBuilder&, SetBuilder& s, auto&) { s.at(0).next_sibling = 1000; }},
      {"array marker is no child", fromHex("1A 02 08 05"), fromHex("1A 04 08 04 10 06"), n3,
       fromHex("1A 02 08 05"),
       [](SetBuilder&, SetBuilder& s, auto&) { s.at(0).first_child = tarn_message_value_array_child; }},
      {"child link to itself", fromHex("1A 02 08 05"), fromHex("20 01 1A 04 08 04 10 06"), n3,
       fromHex("1A 02 08 05 20 01"), [](SetBuilder&, SetBuilder& s, auto&) { s.at(1).first_child = 1; }},
      {"key pointing out of the set", Body().varint(1, 1), Body().varint(1, 9), flat,
       fromHex("08 01 08 09"),
       [](SetBuilder&, SetBuilder&, tarn_host::ValueSet& u) {
         auto* pImpl = u.set()._pValueSetImpl;
         for (uint32_t i = 0; i < pImpl->_bucketCount; ++i)
           if (pImpl->_pKeys[i]._hash == u[0].hash) pImpl->_pKeys[i]._valueIndex = 77;
       }},
      {"stored tag cut off", fromHex("1A 02 08 05"), fromHex("1A 04 08 04 10 06"), n3,
       fromHex("1A 02 08 05"), [](SetBuilder&, SetBuilder& s, auto&) {
         s.at(0).raw_bytes = s.keep(fromHex("9A"));  // a tag that never ends
         s.at(0).raw_bytes_length = 1;
       }},
  };
  for (const MergeCase& c : cases) {
    SCOPED_TRACE(c.name);
    tarn_host::ValueSet update, stored;
    SetBuilder u(update), s(stored);
    u.fill(c.update, c.shape);
    s.fill(c.stored, c.shape);
    if (c.damage) c.damage(u, s, update);
    const uint32_t storedSize = stored.size();
    EXPECT_EQ(hex(c.expected), hex(runMerge(update, stored)));
    EXPECT_EQ(0u, update.size());
    EXPECT_EQ(storedSize, stored.size());
  }
}

TEST(Merge, AppendsBehindTheSegmentsContentAndReturnsTheWholeCount) {
  // 25 bytes of merged output behind 10 bytes already in the segment.
  tarn_host::ValueSet update, stored;
  SetBuilder u(update), s(stored);
  u.fill(Body().str(1, std::string(10, 'u')), Shape());
  s.fill(Body().str(2, std::string(11, 's')), Shape());
  int returned = 0;
  EXPECT_EQ(hex(Body().str(1, std::string(10, 'u')).str(2, std::string(11, 's'))),
            hex(runMerge(update, stored, "0123456789", &returned)));
  EXPECT_EQ(35, returned);
}

TEST(Merge, DepthLimitAndSharedSubtreesEnd) {
  for (unsigned levels : {99u, 100u, 300u}) {
    tarn_host::ValueSet update, stored;
    SetBuilder u(update), s(stored);
    const std::string updateBody = wire::nestedChain(levels, Body().varint(2, 1));
    u.fill(updateBody, Shape{{1}, {}, {}});
    s.fill(wire::nestedChain(levels, Body().varint(3, 1)), Shape{{1}, {}, {}});
    // Up to 100 levels both innermost fields meet; deeper, the update's
    // message at the limit replaces the stored one whole.
    const std::string merged = wire::nestedChain(levels, Body().varint(2, 1).varint(3, 1));
    EXPECT_EQ(hex(levels <= 100 ? merged : updateBody), hex(runMerge(update, stored))) << levels;
  }
  // Two entries per level, both naming the next level as their children: a
  // walk that trusted the links would merge 2^40 subtrees.
  tarn_host::ValueSet update, stored;
  SetBuilder u(update), s(stored);
  for (SetBuilder* b : {&u, &s}) {
    const char* pRawA = b->keep(fromHex("0A 00"));  // separate bytes: not a packed field
    const char* pRawB = b->keep(fromHex("0A 00"));
    for (uint32_t level = 0, parent = INV; level < 40; ++level) {
      const uint32_t first = b->add(parent, "f1", pRawA, 2);
      const uint32_t second = b->add(parent, "f1", pRawB, 2);
      if (level > 0) b->at(second - 2).first_child = first;
      parent = first;
    }
  }
  EXPECT_NE("!", runMerge(update, stored));
  EXPECT_EQ(0u, update.size());
}

}  // namespace

// Value sets built by hand for the merge tests, the way the parser fills them:
// entries through tarn_message_xpath_update, linked through tarn_message_xpath_get,
// raw bytes pointing into a body the builder keeps alive.
//
// fill() walks a body without a schema: a field is named "f<number>", a
// length-delimited field is a nested message when its number is listed in
// Shape::messages, and a field listed in Shape::packed is a packed block of
// varints (one entry per element, all carrying the whole field). At the end of
// each level the listed default fields that did not occur get an entry with no
// raw bytes. Field numbers are not distinguished by level: a shape is meant for
// small hand-made messages.
#ifndef TARN_TESTS_VALUE_SET_BUILDER_H
#define TARN_TESTS_VALUE_SET_BUILDER_H

#include <cstdint>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "host/value_set.h"

namespace tarn_test {

struct Shape {
  std::set<uint32_t> messages;
  std::set<uint32_t> packed;
  // Defaults per level: the key is the nested message's field number, 0 for the
  // top level.
  std::map<uint32_t, std::vector<uint32_t>> defaults;
};

class SetBuilder {
 public:
  explicit SetBuilder(tarn_host::ValueSet& set_) : _set(set_) {}

  // Parses body_ (kept alive by the builder) into the set.
  void fill(const std::string& body_, const Shape& shape_);

  // Low-level: stores one entry under the path hash of name_ below parent_
  // (invalid index: top level), raw bytes [pRaw_, pRaw_ + rawLength_), linked
  // as the newest child of parent_. Returns its index.
  uint32_t add(uint32_t parent_, const std::string& name_, const char* pRaw_, uint32_t rawLength_);

  // Keeps bytes alive for entries made with add().
  const char* keep(const std::string& bytes_);

  tarn_message_value_set_entry& at(uint32_t index_);

 private:
  void _level(const char* p_, const char* end_, uint32_t parent_, uint32_t levelKey_,
              const Shape& shape_);

  tarn_host::ValueSet& _set;
  std::vector<std::unique_ptr<std::string>> _bodies;
  std::map<uint32_t, uint32_t> _lastChild;  // parent index -> newest child
  uint32_t _lastTop = tarn_message_value_invalid_index;
};

// The body a merge writes into a fresh segment, with the segment sized by the
// host's rule, canary bytes behind that room and a check that none of them was
// touched. ok_ is false when the merge wrote past the room.
struct MergeRun {
  std::string output;  // segment content after the merge
  int returned = 0;
  bool ok = true;
  uint64_t room = 0;
};
MergeRun runMerge(tarn_host::ValueSet& update_, tarn_host::ValueSet& stored_,
                  const std::string& prefix_ = std::string());

}  // namespace tarn_test

#endif

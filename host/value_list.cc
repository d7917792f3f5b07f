#include "value_list.h"

namespace tarn_host {

namespace {

const uint32_t invalid = tarn_message_value_invalid_index;

bool hasBytes(const tarn_message_value_set_entry& entry_) {
  return entry_.raw_bytes != nullptr && entry_.raw_bytes_length != 0;
}

// The entry a link names, when it is one more step of the walk: further on in
// the set and hanging under parent_. Requiring both makes every entry
// reachable on one route only, so the walk is linear whatever the links say.
uint32_t follow(const ValueSet& set_, uint32_t from_, uint32_t to_, uint32_t parent_) {
  if (to_ == invalid || to_ <= from_ || to_ >= set_.size()) return invalid;
  return set_[to_].parent == parent_ ? to_ : invalid;
}

bool anyMemberHasBytes(const ValueSet& set_, uint32_t message_) {
  for (uint32_t i = follow(set_, message_, set_[message_].first_child, message_); i != invalid;
       i = follow(set_, i, set_[i].next_sibling, message_)) {
    if (hasBytes(set_[i])) return true;
  }
  return false;
}

}  // namespace

bool ValueList::build(const ValueSet& set_) {
  _values.clear();
  _list = {0, nullptr};
  if (set_.size() == 0) return false;
  // At most one value per entry; the pages of what is not used are never
  // touched.
  _values.reserve(set_.size());

  // One level of the walk: the entry it is at, the message it lists (invalid
  // at the top), its depth and the bytes of the value it listed last.
  struct Level {
    uint32_t at;
    uint32_t parent;
    uint32_t depth;
    const char* pLastRaw;
  };
  std::vector<Level> open;
  Level level = {0, invalid, 1, nullptr};
  if (set_[0].parent != invalid) level.at = invalid;
  for (;;) {
    if (level.at == invalid) {
      if (open.empty()) break;
      level = open.back();
      open.pop_back();
      continue;
    }
    const uint32_t index = level.at;
    const tarn_message_value_set_entry& e = set_[index];
    level.at = follow(set_, index, e.next_sibling, level.parent);
    // Defaults have no bytes; later elements of a packed field repeat the
    // block of the first.
    if (!hasBytes(e) || e.raw_bytes == level.pLastRaw) continue;
    level.pLastRaw = e.raw_bytes;
    if (!anyMemberHasBytes(set_, index)) {
      _add(e, level.depth, false);
      continue;
    }
    _add(e, level.depth, true);
    open.push_back(level);
    level = {follow(set_, index, e.first_child, index), index, level.depth + 1, nullptr};
  }
  _list = {_values.size(), _values.data()};
  return true;
}

void ValueList::_add(const tarn_message_value_set_entry& entry_, uint32_t depth_, bool document_) {
  tarn_message_value v = {};
  v.path_hash = entry_.hash;
  v.depth = depth_;
  v.xpath_value.type_hint = document_ ? tarn_message_xpath_value_type_document : entry_.type_hint;
  v.xpath_value.value_mask = entry_.value_mask;
  v.xpath_value.string_rep = entry_.string_rep;
  v.xpath_value.string_rep_length = entry_.string_rep_length;
  v.xpath_value.raw_bytes = entry_.raw_bytes;
  v.xpath_value.raw_bytes_length = entry_.raw_bytes_length;
  v.xpath_value.value.l = entry_.l;
  _values.push_back(v);
}

}  // namespace tarn_host

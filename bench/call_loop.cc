#include "call_loop.h"

namespace tarn_bench {

namespace {
const uint32_t invalid = tarn_message_value_invalid_index;
}

CallLoop::CallLoop(const std::vector<tarn_message_value_set_entry>& submitted_) {
  _entries = static_cast<uint32_t>(submitted_.size());
  std::vector<bool> message(submitted_.size(), false);
  for (const tarn_message_value_set_entry& e : submitted_) {
    // A message: bytes of its own with no text and no number, or members below it.
    if (e.parent != invalid && e.parent < submitted_.size()) message[e.parent] = true;
  }
  for (size_t i = 0; i < submitted_.size(); ++i) {
    const tarn_message_value_set_entry& e = submitted_[i];
    if (message[i] || (e.raw_bytes != nullptr && e.string_rep == nullptr && e.value_mask == 0))
      ++_messages;
  }
  if (!submitted_.empty()) {
    _pName = submitted_[0].tag_bytes;
    _nameLength = submitted_[0].tag_length;
  }
}

uint32_t CallLoop::run(MeasuredSet& set_) const {
  const tarn_message_xpath_value_set handle = set_.handle();
  const uint32_t base = tarn_message_xpath_hash_get_base(handle);
  tarn_message_value_set_entry entry = {};
  entry.parent = invalid;
  entry.first_child = invalid;
  entry.next_sibling = invalid;
  entry.tag_bytes = _pName;
  entry.tag_length = _nameLength;
  uint32_t previous = invalid;
  for (uint32_t i = 0; i < _entries; ++i) {
    entry.hash = tarn_message_xpath_hash_string(_pName, _nameLength, base);
    const uint32_t index = tarn_message_xpath_update(handle, nullptr, &entry);
    if (previous != invalid) tarn_message_xpath_get(handle, previous)->next_sibling = index;
    previous = index;
  }
  uint32_t seed = base;
  for (uint32_t i = 0; i < _messages; ++i) seed = tarn_message_xpath_hash_add_separator(seed);
  return previous + seed;
}

}  // namespace tarn_bench

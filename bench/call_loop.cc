#include "call_loop.h"

#include <map>

namespace tarn_bench {

namespace {
const uint32_t invalid = tarn_message_value_invalid_index;
}

CallLoop::CallLoop(const std::vector<tarn_message_value_set_entry>& submitted_) {
  std::vector<bool> hasChildren(submitted_.size(), false);
  for (const tarn_message_value_set_entry& e : submitted_)
    if (e.parent != invalid && e.parent < submitted_.size()) hasChildren[e.parent] = true;
  std::map<uint32_t, uint32_t> lastOfLevel;  // by parent index
  for (uint32_t i = 0; i < submitted_.size(); ++i) {
    const tarn_message_value_set_entry& e = submitted_[i];
    Step s;
    s.name = e.tag_bytes;
    s.length = e.tag_length;
    s.parent = e.parent;
    // A message: bytes of its own, no text and no number, or members below it.
    s.message =
        hasChildren[i] || (e.raw_bytes != nullptr && e.string_rep == nullptr && e.value_mask == 0);
    auto last = lastOfLevel.find(e.parent);
    s.sibling = last != lastOfLevel.end();
    s.link = s.sibling ? last->second : e.parent;
    s.count = 1;
    lastOfLevel[e.parent] = i;
    _first.push_back(i);
    if (!_steps.empty()) {
      Step& run = _steps.back();
      if (!run.message && !s.message && s.sibling && s.link == i - 1 && s.parent == run.parent &&
          s.name == run.name && s.length == run.length) {
        ++run.count;
        _first.pop_back();
        continue;
      }
    }
    _steps.push_back(s);
  }
  _seeds.resize(submitted_.size());
}

uint32_t CallLoop::run(tarn_host::ValueSet& set_) {
  const tarn_message_xpath_value_set handle = set_.handle();
  const uint32_t base = tarn_message_xpath_hash_get_base(handle);
  tarn_message_value_set_entry entry = {};
  uint32_t index = invalid;
  for (size_t i = 0; i < _steps.size(); ++i) {
    const Step& s = _steps[i];
    const uint32_t seed = s.parent == invalid ? base : _seeds[s.parent];
    entry.parent = s.parent;
    entry.tag_bytes = s.name;
    entry.tag_length = s.length;
    uint32_t link = s.link;
    bool sibling = s.sibling;
    for (uint32_t k = 0; k < s.count; ++k) {
      entry.hash = tarn_message_xpath_hash_string(s.name, s.length, seed);
      if (s.message) _seeds[_first[i]] = tarn_message_xpath_hash_add_separator(entry.hash);
      index = tarn_message_xpath_update(handle, nullptr, &entry);
      if (link != invalid) {
        tarn_message_value_set_entry* pLinked = tarn_message_xpath_get(handle, link);
        if (sibling)
          pLinked->next_sibling = index;
        else if (pLinked->first_child == invalid)
          pLinked->first_child = index;
      }
      link = index;
      sibling = true;
    }
  }
  return index;
}

}  // namespace tarn_bench

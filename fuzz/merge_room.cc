#include "merge_room.h"

namespace tarn_fuzz {
namespace {

const uint32_t invalid = tarn_message_value_invalid_index;

// A link names an entry only when it is neither 0 nor invalid; the walk also
// stops at links that do not lead forward, which a parse never writes.
bool follows(uint32_t from_, uint32_t link_, uint32_t count_) {
  return link_ != 0 && link_ != invalid && link_ > from_ && link_ < count_;
}

size_t tagLength(const tarn_message_value_set_entry& entry_) {
  size_t n = 0;
  while (n < entry_.raw_bytes_length && (entry_.raw_bytes[n] & 0x80)) ++n;
  return n + 1;
}

size_t level(tarn_host::ValueSet& update_, tarn_host::ValueSet& source_, uint32_t updSlot_,
             uint32_t oldSlot_) {
  size_t room = 0;
  const uint32_t updCount = update_.size(), oldCount = source_.size();
  for (uint32_t u = updSlot_; u != invalid && u < updCount;) {
    const tarn_message_value_set_entry& el = update_[u];
    const tarn::tarn_xpath_value* pFound = source_.set().fastFind(el.hash);
    const tarn_message_value_set_entry* pOld = pFound ? pFound->entry() : nullptr;
    const bool merged = pOld != nullptr && follows(u, el.first_child, updCount) &&
                        pOld->first_child != 0 && pOld->first_child != invalid;
    if (merged) {
      const uint32_t oldIndex = static_cast<uint32_t>(pFound - source_.set().getBySlot(0));
      room += tagLength(*pOld) + 10 +
              (follows(oldIndex, pOld->first_child, oldCount)
                   ? level(update_, source_, el.first_child, pOld->first_child)
                   : level(update_, source_, el.first_child, invalid));
    } else {
      room += el.raw_bytes_length;
    }
    u = follows(u, el.next_sibling, updCount) ? el.next_sibling : invalid;
  }
  for (uint32_t o = oldSlot_; o != invalid && o < oldCount;) {
    const tarn_message_value_set_entry& el = source_[o];
    room += el.raw_bytes_length;
    o = follows(o, el.next_sibling, oldCount) ? el.next_sibling : invalid;
  }
  return room;
}

}  // namespace

size_t mergeRoom(tarn_host::ValueSet& update_, tarn_host::ValueSet& source_) {
  return level(update_, source_, update_.size() ? 0 : invalid, source_.size() ? 0 : invalid);
}

}  // namespace tarn_fuzz

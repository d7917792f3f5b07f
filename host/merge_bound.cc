#include "merge_bound.h"

#include <algorithm>

namespace tarn_host {
namespace {

using Set = tarn::tarn_xpath_value_set;
using Value = tarn::tarn_xpath_value;

const uint32_t invalid = tarn_message_value_invalid_index;
// The module's limit on merges nested inside one another.
const unsigned max_merge_depth = 100;

uint64_t varintBytes(uint64_t value_) {
  uint64_t count = 0;
  do {
    ++count;
    value_ >>= 7;
  } while (value_ != 0);
  return count;
}

uint32_t tagBytes(const Value& value_) {
  if (value_._pRawBytes == nullptr) return 0;
  for (uint32_t i = 0; i < value_._rawBytesLength; ++i)
    if ((static_cast<unsigned char>(value_._pRawBytes[i]) & 0x80) == 0) return i + 1;
  return 0;
}

bool hasBytes(const Value& value_) {
  return value_._rawBytesLength != 0 && value_._pRawBytes != nullptr;
}

bool repeatsRange(const Value& value_, const Value* pPrevious_) {
  return pPrevious_ != nullptr && pPrevious_->_pRawBytes == value_._pRawBytes &&
         pPrevious_->_rawBytesLength == value_._rawBytesLength;
}

class BoundWalk {
 public:
  BoundWalk(ValueSet& update_, ValueSet& stored_)
      : _upd(update_.set()),
        _old(stored_.set()),
        _updCount(update_.size()),
        _oldCount(stored_.size()) {
    _steps = uint64_t{_updCount} + uint64_t{_oldCount} * (uint64_t{_updCount} + 1);
  }

  uint64_t run() {
    uint64_t peak = 0;
    level(_updCount ? 0 : invalid, _oldCount ? 0 : invalid, peak);
    return peak;
  }

 private:
  bool forward(uint32_t count_, uint32_t from_, uint32_t to_) const {
    return to_ != 0 && to_ != invalid && to_ < count_ && to_ > from_;
  }

  uint32_t find(const Set& set_, uint32_t count_, uint32_t hash_) const {
    if (count_ == 0) return invalid;
    const Value* p = set_.fastFind(hash_);
    if (p == nullptr) return invalid;
    const ptrdiff_t index = p - set_._pValueSetImpl->_pValues;
    return index >= 0 && index < static_cast<ptrdiff_t>(count_) ? static_cast<uint32_t>(index)
                                                                : invalid;
  }

  // Bytes the level leaves behind; peak_ gets the furthest byte it touches,
  // both counted from the level's start.
  uint64_t level(uint32_t updSlot_, uint32_t oldSlot_, uint64_t& peak_) {
    uint64_t pos = 0;
    peak_ = 0;
    const Value* pPrevious = nullptr;
    for (uint32_t i = updSlot_; i < _updCount && _steps != 0;) {
      --_steps;
      const Value& el = *_upd.getBySlot(i);
      if (hasBytes(el) && !repeatsRange(el, pPrevious)) {
        const uint32_t oldIndex = find(_old, _oldCount, el._hash);
        const Value* pOld = oldIndex == invalid ? nullptr : _old.getBySlot(oldIndex);
        const uint32_t oldTag = pOld ? tagBytes(*pOld) : 0;
        if (oldTag != 0 && _depth < max_merge_depth && forward(_updCount, i, el._firstChild) &&
            forward(_oldCount, oldIndex, pOld->_firstChild)) {
          const uint64_t guessed =
              varintBytes(static_cast<uint32_t>(el._rawBytesLength + pOld->_rawBytesLength));
          uint64_t innerPeak = 0;
          ++_depth;
          const uint64_t written = level(el._firstChild, pOld->_firstChild, innerPeak);
          --_depth;
          peak_ = std::max(peak_, pos + oldTag + guessed + innerPeak);
          pos += oldTag + varintBytes(written) + written;
        } else {
          pos += el._rawBytesLength;
        }
        peak_ = std::max(peak_, pos);
      }
      pPrevious = &el;
      if (!forward(_updCount, i, el._nextSibling)) break;
      i = el._nextSibling;
    }
    pPrevious = nullptr;
    for (uint32_t i = oldSlot_; i < _oldCount && _steps != 0;) {
      --_steps;
      const Value& el = *_old.getBySlot(i);
      const uint32_t updIndex = find(_upd, _updCount, el._hash);
      const bool replaced = updIndex != invalid && hasBytes(*_upd.getBySlot(updIndex));
      if (!replaced && hasBytes(el) && !repeatsRange(el, pPrevious)) pos += el._rawBytesLength;
      pPrevious = &el;
      if (!forward(_oldCount, i, el._nextSibling)) break;
      i = el._nextSibling;
    }
    peak_ = std::max(peak_, pos);
    return pos;
  }

  const Set& _upd;
  const Set& _old;
  const uint32_t _updCount;
  const uint32_t _oldCount;
  uint64_t _steps;
  unsigned _depth = 0;
};

}  // namespace

uint64_t mergeOutputBound(ValueSet& update_, ValueSet& stored_) {
  return BoundWalk(update_, stored_).run();
}

uint32_t deltaMerge(const ModuleApi& api_, ValueSet& update_, ValueSet& stored_,
                    std::string& segment_) {
  const size_t content = segment_.size();
  segment_.resize(content + mergeOutputBound(update_, stored_));
  tarn_delta_message_data delta = {};
  delta.output.data = &segment_[0];
  delta.output.byte_count = static_cast<uint32_t>(content);
  delta.update_value_set = update_.handle();
  delta.source_value_set = stored_.handle();
  const uint32_t count = static_cast<uint32_t>(api_.delta_publish_merge(&delta));
  segment_.resize(count);
  return count;
}

}  // namespace tarn_host

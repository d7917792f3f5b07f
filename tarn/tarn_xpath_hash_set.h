// A set of path hashes: what a partial parse is asked to keep. Open addressing
// with linear probing over a power-of-two table; hash 0 marks an empty slot and
// is never a path hash.
#ifndef TARN_TARN_XPATH_HASH_SET_H
#define TARN_TARN_XPATH_HASH_SET_H

#include <cstdint>
#include <vector>

#include "tarn/tarn_xpath_value.h"

namespace tarn {

class tarn_xpath_hash_set {
 public:
  explicit tarn_xpath_hash_set(uint32_t expected_ = 8) : _slots(tableSizeFor(expected_), 0) {}

  void insert(tarn_xpath_hash_type hash_) {
    if (hash_ == 0 || contains(hash_)) return;
    if ((_count + 1) * 2 > _slots.size()) grow();
    place(hash_);
    ++_count;
  }

  bool contains(tarn_xpath_hash_type hash_) const {
    if (hash_ == 0) return false;
    const uint32_t mask = static_cast<uint32_t>(_slots.size()) - 1;
    for (uint32_t slot = hash_ & mask;; slot = (slot + 1) & mask) {
      if (_slots[slot] == hash_) return true;
      if (_slots[slot] == 0) return false;
    }
  }

  uint32_t size() const { return _count; }

 private:
  static uint32_t tableSizeFor(uint32_t expected_) {
    uint32_t n = 8;
    while (n < expected_ * 2) n <<= 1;
    return n;
  }
  void place(tarn_xpath_hash_type hash_) {
    const uint32_t mask = static_cast<uint32_t>(_slots.size()) - 1;
    uint32_t slot = hash_ & mask;
    while (_slots[slot] != 0) slot = (slot + 1) & mask;
    _slots[slot] = hash_;
  }
  void grow() {
    std::vector<uint32_t> old;
    old.swap(_slots);
    _slots.assign(old.size() * 2, 0);
    for (uint32_t h : old)
      if (h != 0) place(h);
  }

  std::vector<uint32_t> _slots;  // always at least half empty, so probes end
  uint32_t _count = 0;
};

}  // namespace tarn

#endif

// The stand-in host's value set: real storage with the layout a module reads
// (tarn/tarn_xpath_value_set.h), filled by a module through the six
// tarn_message_xpath_* functions the host exports (exports.cc), under the
// insertion and find-set rules of value_store.h.
#ifndef TARN_HOST_VALUE_SET_H
#define TARN_HOST_VALUE_SET_H

#include <cstdint>
#include <vector>

#include "tarn/tarn_xpath_value_set.h"

namespace tarn_host {

const uint32_t default_base_hash = 0x811C9DC5u;

class ValueSet {
 public:
  // An empty set whose paths continue baseHash_. Throws std::bad_alloc.
  explicit ValueSet(uint32_t baseHash_ = default_base_hash);
  ~ValueSet();
  ValueSet(const ValueSet&) = delete;
  ValueSet& operator=(const ValueSet&) = delete;

  // What a module is handed: valid as long as the set.
  tarn_message_xpath_value_set handle() { return &_set; }
  tarn::tarn_xpath_value_set& set() { return _set; }
  const tarn::tarn_xpath_value_set::value_set_impl& impl() const { return *_set._pValueSetImpl; }

  uint32_t size() const { return _set._pValueSetImpl->_storeCount; }
  // REQUIRES: index_ < size().
  const tarn_message_value_set_entry& operator[](uint32_t index_) const {
    return *_set.getBySlot(index_)->entry();
  }
  std::vector<tarn_message_value_set_entry> entries() const;

  // Empties the set for reuse, as tarn_message_xpath_clear does.
  void clear();

 private:
  tarn::tarn_xpath_value_set _set;
};

}  // namespace tarn_host

#endif

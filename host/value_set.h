// The stand-in host's value set: real storage with the layout a module reads
// (tarn/tarn_xpath_value_set.h), filled through the six tarn_message_xpath_*
// functions that this library exports to the module.
//
// Insertion rule. Entries get consecutive indexes from 0. The key table maps a
// path hash to the first entry stored under it; later entries with the same hash
// (repeated fields, packed elements) are appended to the value array only: the
// first entry's _arrayCount counts every entry of the hash and its _last names
// the newest, and each later entry's _array names the first. So fastFind on a
// repeated path answers its first occurrence.
//
// Find-set rule (partial parse). With a find set, an entry is kept when its
// path hash is in the set or when its parent was kept, so asking for a nested
// message keeps its whole subtree. A rejected entry gets the invalid index and
// so its children, unless asked for themselves, are rejected too.
//
// When memory runs out an entry gets the invalid index and nothing is stored.
#ifndef TARN_HOST_VALUE_SET_H
#define TARN_HOST_VALUE_SET_H

#include <cstdint>
#include <vector>

#include "tarn/tarn_xpath_value_set.h"

namespace tarn_host {

const uint32_t default_base_hash = 0x811C9DC5u;

class ValueSet {
 public:
  enum class Mode {
    store,    // keep every entry: what a server does
    discard,  // keep nothing, answer with fresh indexes: measures the module alone
    null,     // discard, with no recording and no find set consulted: the cheapest host
  };

  explicit ValueSet(uint32_t baseHash_ = default_base_hash, Mode mode_ = Mode::store);
  ~ValueSet();
  ValueSet(const ValueSet&) = delete;
  ValueSet& operator=(const ValueSet&) = delete;

  tarn_message_xpath_value_set handle() { return &_set; }
  tarn::tarn_xpath_value_set& set() { return _set; }
  const tarn::tarn_xpath_value_set::value_set_impl& impl() const { return *_set._pValueSetImpl; }

  uint32_t size() const { return _set._pValueSetImpl->_storeCount; }
  const tarn_message_value_set_entry& operator[](uint32_t index_) const {
    return *_set.getBySlot(index_)->entry();
  }
  std::vector<tarn_message_value_set_entry> entries() const;

  // Indexes the host handed out: size() in store mode.
  uint32_t submitted() const;

  // Appends a copy of every record the module submits to tarn_message_xpath_update,
  // kept or not, to *pLog_ (null stops recording). The log must outlive the parse.
  void recordSubmissions(std::vector<tarn_message_value_set_entry>* pLog_);

  void clear();

  // While on, the path hash functions (which see no value set) answer seed +
  // length: pure, as the module requires, and nearly free, so that a
  // benchmark against null-mode sets times the module's own work. Process-wide;
  // switch it only while no other thread hashes.
  static void cheapHashing(bool on_);

 private:
  tarn::tarn_xpath_value_set _set;
};

}  // namespace tarn_host

#endif

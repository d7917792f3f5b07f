#include "value_set.h"

#include <cstdlib>
#include <new>

#include "value_store.h"

namespace tarn_host {
namespace store {
namespace {

const uint32_t invalid = tarn_message_value_invalid_index;

// An empty slot for hash_ in a table with room (see roomFor).
KeyData& emptySlot(Impl& impl_, uint32_t hash_) {
  uint32_t slot = hash_ & impl_._bucketMask;
  while (impl_._pKeys[slot]._hash != 0) slot = (slot + 1) & impl_._bucketMask;
  return impl_._pKeys[slot];
}

// Doubles the key table. False, with the table unchanged, when memory runs
// out.
[[gnu::noinline, gnu::cold]] bool growKeys(Impl& impl_) {
  const uint32_t oldCount = impl_._bucketCount;
  auto* pNew = static_cast<KeyData*>(std::calloc(oldCount * 2, sizeof(KeyData)));
  if (pNew == nullptr) return false;
  KeyData* pOld = impl_._pKeys;
  impl_._pKeys = pNew;
  impl_._bucketCount = oldCount * 2;
  impl_._bucketMask = impl_._bucketCount - 1;
  for (uint32_t i = 0; i < oldCount; ++i)
    if (pOld[i]._hash != 0) emptySlot(impl_, pOld[i]._hash) = pOld[i];
  std::free(pOld);
  return true;
}

// Doubles the value array (16 entries at first). False, with the array
// unchanged, when memory runs out.
[[gnu::noinline, gnu::cold]] bool growValues(Impl& impl_) {
  const uint32_t newCount = impl_._allocCount ? impl_._allocCount * 2 : 16;
  void* p = std::realloc(impl_._pValues, sizeof(Value) * newCount);
  if (p == nullptr) return false;
  impl_._pValues = static_cast<Value*>(p);
  impl_._allocCount = newCount;
  return true;
}

// The plain store for the paths that do not inline it.
[[gnu::noinline]] uint32_t storeOutOfLine(Impl& impl_, const tarn_message_value_set_entry& entry_) {
  return store(impl_, entry_);
}

}  // namespace

uint32_t growAndStore(Impl& impl_, const tarn_message_value_set_entry& entry_, bool keys_) {
  if (!(keys_ ? growKeys(impl_) : growValues(impl_))) return invalid;
  return storeOutOfLine(impl_, entry_);
}

uint32_t storeWanted(Impl& impl_, const tarn::tarn_xpath_hash_set& find_,
                     const tarn_message_value_set_entry& entry_) {
  if (!find_.contains(entry_.hash) && entry_.parent == invalid) return invalid;
  return storeOutOfLine(impl_, entry_);
}

}  // namespace store

ValueSet::ValueSet(uint32_t baseHash_) {
  auto* pImpl = new store::Impl();
  pImpl->_bucketCount = tarn::tarn_xpath_value_set::default_bucket_count;
  pImpl->_bucketMask = pImpl->_bucketCount - 1;
  pImpl->_baseHash = baseHash_;
  pImpl->_pKeys =
      static_cast<store::KeyData*>(std::calloc(pImpl->_bucketCount, sizeof(store::KeyData)));
  if (pImpl->_pKeys == nullptr) {
    delete pImpl;
    throw std::bad_alloc();
  }
  _set._pValueSetImpl = pImpl;
}

ValueSet::~ValueSet() {
  store::Impl* pImpl = _set._pValueSetImpl;
  std::free(pImpl->_pKeys);
  std::free(pImpl->_pValues);
  delete pImpl;
}

std::vector<tarn_message_value_set_entry> ValueSet::entries() const {
  std::vector<tarn_message_value_set_entry> out;
  for (uint32_t i = 0; i < size(); ++i) out.push_back((*this)[i]);
  return out;
}

void ValueSet::clear() { store::clear(*_set._pValueSetImpl); }

}  // namespace tarn_host

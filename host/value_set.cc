#include "value_set.h"

#include <cstdlib>
#include <cstring>
#include <new>

#include "host_export.h"

namespace tarn_host {
namespace {

using Impl = tarn::tarn_xpath_value_set::value_set_impl;
using KeyData = tarn::tarn_xpath_value_set::key_data;

const uint32_t invalid = tarn_message_value_invalid_index;

// Host bookkeeping that is not part of the shared layout, kept behind _pUserData.
struct SetState {
  ValueSet::Mode mode;
  uint32_t submitted;              // indexes handed out
  tarn::tarn_xpath_value scratch;  // discard mode: the entry every index names
  // Tests: every submitted record, kept or not (see recordSubmissions).
  std::vector<tarn_message_value_set_entry>* pRecord;
};

SetState& state(const Impl& impl_) { return *static_cast<SetState*>(impl_._pUserData); }

Impl& implOf(tarn_message_xpath_value_set valueSet_) {
  return *static_cast<tarn::tarn_xpath_value_set*>(valueSet_)->_pValueSetImpl;
}

template <typename T>
T* allocZeroed(size_t count_) {
  void* p = std::calloc(count_, sizeof(T));
  if (p == nullptr) throw std::bad_alloc();
  return static_cast<T*>(p);
}

void placeKey(Impl& impl_, uint32_t hash_, uint32_t index_) {
  uint32_t slot = hash_ & impl_._bucketMask;
  while (impl_._pKeys[slot]._hash != 0) slot = (slot + 1) & impl_._bucketMask;
  impl_._pKeys[slot] = KeyData{hash_, index_};
}

// Keeps the key table at most half full, so every probe meets an empty slot.
void growKeys(Impl& impl_) {
  KeyData* pOld = impl_._pKeys;
  const uint32_t oldCount = impl_._bucketCount;
  impl_._bucketCount = oldCount * 2;
  impl_._bucketMask = impl_._bucketCount - 1;
  impl_._pKeys = allocZeroed<KeyData>(impl_._bucketCount);
  for (uint32_t i = 0; i < oldCount; ++i)
    if (pOld[i]._hash != 0) placeKey(impl_, pOld[i]._hash, pOld[i]._valueIndex);
  std::free(pOld);
}

void growValues(Impl& impl_) {
  const uint32_t newCount = impl_._allocCount ? impl_._allocCount * 2 : 16;
  void* p = std::realloc(impl_._pValues, sizeof(tarn::tarn_xpath_value) * newCount);
  if (p == nullptr) throw std::bad_alloc();
  impl_._pValues = static_cast<tarn::tarn_xpath_value*>(p);
  impl_._allocCount = newCount;
}

bool wanted(const Impl& impl_, const tarn::tarn_xpath_hash_set* pFind_,
            const tarn_message_value_set_entry& entry_) {
  (void)impl_;
  if (pFind_ == nullptr) return true;
  return pFind_->contains(entry_.hash) || entry_.parent != invalid;
}

uint32_t store(Impl& impl_, const tarn_message_value_set_entry& entry_) {
  if (impl_._storeCount == impl_._allocCount) growValues(impl_);
  const uint32_t index = impl_._storeCount++;
  tarn::tarn_xpath_value& value = impl_._pValues[index];
  std::memcpy(static_cast<void*>(&value), &entry_, sizeof value);
  value._array = 0;
  value._last = index;
  value._arrayCount = 1;

  const tarn::tarn_xpath_value_set::key_data* pKey =
      entry_.hash == 0 ? nullptr : impl_.find(entry_.hash);
  if (pKey != nullptr) {
    tarn::tarn_xpath_value& first = impl_._pValues[pKey->_valueIndex];
    ++first._arrayCount;
    first._last = index;
    value._array = pKey->_valueIndex;
    value._arrayCount = 0;
  } else if (entry_.hash != 0) {
    if ((impl_._keyCount + 1) * 2 > impl_._bucketCount) growKeys(impl_);
    placeKey(impl_, entry_.hash, index);
    ++impl_._keyCount;
  }
  return index;
}

}  // namespace

ValueSet::ValueSet(uint32_t baseHash_, Mode mode_) {
  Impl* pImpl = allocZeroed<Impl>(1);
  pImpl->_bucketCount = tarn::tarn_xpath_value_set::default_bucket_count;
  pImpl->_bucketMask = pImpl->_bucketCount - 1;
  pImpl->_baseHash = baseHash_;
  pImpl->_pKeys = allocZeroed<KeyData>(pImpl->_bucketCount);
  pImpl->_pUserData = new SetState{mode_, 0, {}, nullptr};
  _set._pValueSetImpl = pImpl;
}

ValueSet::~ValueSet() {
  Impl* pImpl = _set._pValueSetImpl;
  delete &state(*pImpl);
  std::free(pImpl->_pKeys);
  std::free(pImpl->_pValues);
  std::free(pImpl);
}

std::vector<tarn_message_value_set_entry> ValueSet::entries() const {
  std::vector<tarn_message_value_set_entry> out;
  for (uint32_t i = 0; i < size(); ++i) out.push_back((*this)[i]);
  return out;
}

uint32_t ValueSet::submitted() const { return state(*_set._pValueSetImpl).submitted; }

void ValueSet::recordSubmissions(std::vector<tarn_message_value_set_entry>* pLog_) {
  state(*_set._pValueSetImpl).pRecord = pLog_;
}

void ValueSet::clear() { tarn_message_xpath_clear(&_set); }

}  // namespace tarn_host

using tarn_host::implOf;

TARN_HOST_EXPORT tarn_message_xpath_hash
tarn_message_xpath_hash_get_base(tarn_message_xpath_value_set valueSet) {
  return implOf(valueSet)._baseHash;
}

namespace tarn_host {
namespace {

// Everything but the null mode, kept out of line so that the null mode's
// path through tarn_message_xpath_update saves no registers.
[[gnu::noinline]] uint32_t update(Impl& impl_, SetState& st_, tarn_message_xpath_find_set findSet_,
                                  tarn_message_value_set_entry* pEntry_) {
  const auto* pFind = static_cast<const tarn::tarn_xpath_hash_set*>(findSet_);
  if (st_.pRecord != nullptr) st_.pRecord->push_back(*pEntry_);
  if (!wanted(impl_, pFind, *pEntry_)) return tarn_message_value_invalid_index;
  if (st_.mode == ValueSet::Mode::discard) return st_.submitted++;
  ++st_.submitted;
  try {
    return store(impl_, *pEntry_);
  } catch (const std::bad_alloc&) {
    return tarn_message_value_invalid_index;
  }
}

}  // namespace
}  // namespace tarn_host

TARN_HOST_EXPORT uint32_t tarn_message_xpath_update(tarn_message_xpath_value_set valueSet,
                                                    tarn_message_xpath_find_set findSet,
                                                    tarn_message_value_set_entry* entry) {
  auto& impl = implOf(valueSet);
  auto& st = tarn_host::state(impl);
  if (st.mode == tarn_host::ValueSet::Mode::null) return st.submitted++;
  return tarn_host::update(impl, st, findSet, entry);
}

TARN_HOST_EXPORT tarn_message_value_set_entry* tarn_message_xpath_get(
    tarn_message_xpath_value_set valueSet, uint32_t index) {
  auto& impl = implOf(valueSet);
  auto& st = tarn_host::state(impl);
  if (st.mode != tarn_host::ValueSet::Mode::store)
    return reinterpret_cast<tarn_message_value_set_entry*>(&st.scratch);
  if (index >= impl._storeCount) return nullptr;
  return reinterpret_cast<tarn_message_value_set_entry*>(impl._pValues + index);
}

TARN_HOST_EXPORT void tarn_message_xpath_clear(tarn_message_xpath_value_set valueSet) {
  auto& impl = implOf(valueSet);
  std::memset(impl._pKeys, 0, sizeof(*impl._pKeys) * impl._bucketCount);
  impl._keyCount = 0;
  impl._storeCount = 0;
  tarn_host::state(impl).submitted = 0;
}

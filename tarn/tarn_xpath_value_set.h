// The host's value-set storage, as a module compiles it. Only the host writes a
// set (through the tarn_message_xpath_* functions); a module may read it with
// the inline lookups below, which allocate nothing and take no lock.
#ifndef TARN_TARN_XPATH_VALUE_SET_H
#define TARN_TARN_XPATH_VALUE_SET_H

#include <cstddef>
#include <cstdint>

#include "tarn/tarn_xpath_hash_set.h"
#include "tarn/tarn_xpath_value.h"

namespace tarn {

// Byte buffers the host may attach to a set (for values it materialises itself).
struct tarn_xpath_value_buffer {
  char** _pBuffers;
  uint32_t _count;
  uint32_t _allocated;
};

class tarn_xpath_value_set {
 public:
  typedef tarn_xpath_hash_type hash_type;
  typedef uint32_t size_type;
  typedef uint32_t value_handle_type;

  static const uint32_t default_bucket_count = 8;
  static const uint32_t insert_append = 0;
  static const uint32_t insert_replace = 1;
  static const uint32_t insert_reject_duplicate = 2;

  struct key_data {
    hash_type _hash;  // 0: empty slot
    value_handle_type _valueIndex;
  };

  struct value_set_impl {
    size_type _bucketCount;  // power of two; also the probe limit
    size_type _bucketMask;   // _bucketCount - 1
    size_type _keyCount;
    size_type _storeCount;
    size_type _allocCount;
    hash_type _baseHash;
    key_data* _pKeys;
    tarn_xpath_value* _pValues;
    void* _pUserData;
    tarn_xpath_value_buffer _valueBuffer;
    const tarn_xpath_hash_set* _pMemoizeFindSet;

    // Linear probe from the home slot. Stops at the first empty slot, and in a
    // table with no empty slot after _bucketCount + 2 slots, so it always ends.
    const key_data* find(hash_type key_) const {
      size_type slot = key_ & _bucketMask;
      size_type probes = 0;
      for (;;) {
        const key_data* pKey = _pKeys + slot;
        if (pKey->_hash == key_) return pKey;
        if (pKey->_hash == 0) return nullptr;
        if (probes > _bucketCount) return nullptr;
        ++probes;
        slot = (slot + 1) & _bucketMask;
      }
    }
  };

  value_set_impl* _pValueSetImpl;

  // No range check: the index must name a stored entry.
  tarn_xpath_value* getBySlot(value_handle_type slotIndex_) const {
    return _pValueSetImpl->_pValues + slotIndex_;
  }

  // The entry stored under a path hash, or null. Hash 0 is never a path hash
  // and would match an empty slot, so it is answered with null up front.
  tarn_xpath_value* fastFind(hash_type key_) const {
    if (key_ == 0) return nullptr;
    const key_data* pKey = _pValueSetImpl->find(key_);
    return pKey ? getBySlot(pKey->_valueIndex) : nullptr;
  }
};

// The storage as the SDK states it for hosts (message_type/tarn_value_set_storage.h):
// the classes above are the module's view of that one layout.
#define TARN_SAME_PLACE(cls, field, sdk, sdkField)               \
  static_assert(offsetof(cls, field) == offsetof(sdk, sdkField), \
                #cls "::" #field " must sit where the SDK keeps " #sdkField)
TARN_SAME_PLACE(tarn_xpath_value_set::key_data, _hash, tarn_value_set_key_slot, hash);
TARN_SAME_PLACE(tarn_xpath_value_set::key_data, _valueIndex, tarn_value_set_key_slot, value_index);
TARN_SAME_PLACE(tarn_xpath_value_buffer, _pBuffers, tarn_value_set_buffers, buffers);
TARN_SAME_PLACE(tarn_xpath_value_buffer, _count, tarn_value_set_buffers, count);
TARN_SAME_PLACE(tarn_xpath_value_buffer, _allocated, tarn_value_set_buffers, allocated);
#define TARN_SAME_STORAGE(field, sdkField) \
  TARN_SAME_PLACE(tarn_xpath_value_set::value_set_impl, field, tarn_value_set_storage, sdkField)
TARN_SAME_STORAGE(_bucketCount, bucket_count);
TARN_SAME_STORAGE(_bucketMask, bucket_mask);
TARN_SAME_STORAGE(_keyCount, key_count);
TARN_SAME_STORAGE(_storeCount, store_count);
TARN_SAME_STORAGE(_allocCount, alloc_count);
TARN_SAME_STORAGE(_baseHash, base_hash);
TARN_SAME_STORAGE(_pKeys, keys);
TARN_SAME_STORAGE(_pValues, values);
TARN_SAME_STORAGE(_pUserData, user_data);
TARN_SAME_STORAGE(_valueBuffer, value_buffer);
TARN_SAME_STORAGE(_pMemoizeFindSet, memoize_find_set);
TARN_SAME_PLACE(tarn_xpath_value_set, _pValueSetImpl, tarn_value_set, storage);
#undef TARN_SAME_STORAGE
#undef TARN_SAME_PLACE
static_assert(sizeof(tarn_xpath_value_set::key_data) == sizeof(tarn_value_set_key_slot),
              "key slot size");
static_assert(sizeof(tarn_xpath_value_set::value_set_impl) == sizeof(tarn_value_set_storage),
              "storage size");
static_assert(sizeof(tarn_xpath_value_set) == sizeof(tarn_value_set), "handle target size");

}  // namespace tarn

#endif

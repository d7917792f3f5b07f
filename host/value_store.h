// The stand-in host's store, as the functions a host exports to a module use
// it. The plain store is inline so that an exported update runs it with no
// call of its own; growth, the find-set path and the set's life are in
// value_set.cc. Every host built over this storage (the stand-in host's
// exports in exports.cc, the benchmark's measuring host) reaches a set's
// entries through these functions and no other.
//
// Insertion rule. Entries get consecutive indexes from 0. The key table maps a
// path hash to the first entry stored under it; later entries with the same
// hash (repeated fields, packed elements) are appended to the value array
// only: the first entry's _arrayCount counts every entry of the hash and its
// _last names the newest, and each later entry's _array names the first. So
// fastFind on a repeated path answers its first occurrence. Hash 0 marks
// empty slots, so an entry with hash 0 is stored without a key.
//
// When memory runs out an entry gets the invalid index and nothing is stored.
#ifndef TARN_HOST_VALUE_STORE_H
#define TARN_HOST_VALUE_STORE_H

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "tarn/tarn_xpath_value_set.h"

namespace tarn_host {
namespace store {

using Impl = tarn::tarn_xpath_value_set::value_set_impl;
using KeyData = tarn::tarn_xpath_value_set::key_data;
using Value = tarn::tarn_xpath_value;

inline Impl& implOf(tarn_message_xpath_value_set valueSet_) {
  return *static_cast<tarn::tarn_xpath_value_set*>(valueSet_)->_pValueSetImpl;
}

// Whether the key table takes one more key without growing. It stays at most
// half full, so every probe meets an empty slot. Up to 64 slots it stays at
// most a quarter full, so that a message of 17 to 64 distinct paths gets 128
// slots: its paths then seldom share a home slot, and a store mostly finds its
// key at the first slot it looks at. Larger tables stay half full, as a clear
// writes every slot.
inline bool roomFor(const Impl& impl_, uint32_t keys_) {
  return keys_ * (impl_._bucketCount <= 64 ? 4 : 2) <= impl_._bucketCount;
}

// One load of exactly one field. Relaxed atomic loads are never merged into
// wider ones, which matters below.
template <typename T>
inline T loadField(const T& field_) {
  return __atomic_load_n(&field_, __ATOMIC_RELAXED);
}

// The copy the set keeps of a submitted entry, with the host's chaining of
// repeated hashes in place of what the module wrote there.
//
// The module has just written the record field by field, so a wide load that
// spans several of those writes cannot take its bytes from the store buffer
// and waits until they reach the cache; a plain 80-byte copy stalls on every
// entry (a packed element rewrites its value, value mask and type each time).
// So every field is read with a load of its own width, and neighbouring
// 32-bit fields, the host's three chaining fields among them, are paired into
// 8-byte words (little-endian, as the layout is x86-64's) to save stores.
// This costs instructions and saves more time than they take.
inline uint64_t pair(uint32_t low_, uint32_t high_) {
  return low_ | static_cast<uint64_t>(high_) << 32;
}

inline void word(char* pTo_, uint64_t value_) { std::memcpy(pTo_, &value_, 8); }

static_assert(offsetof(Value, _valueMask) == 4 && offsetof(Value, _valueFlags) == 6 &&
                  offsetof(Value, _typeHint) == 7 && sizeof(Value) == 80 &&
                  offsetof(Value, _rawBytesLength) == 40 &&
                  offsetof(Value, _stringRepLength) == 48 && offsetof(Value, _last) == 56 &&
                  offsetof(Value, _parent) == 64 && offsetof(Value, _nextSibling) == 72,
              "the words written below pair these fields with the ones after them");

inline void place(Value& value_, const tarn_message_value_set_entry& entry_, uint32_t hash_,
                  uint32_t array_, uint32_t last_, uint32_t arrayCount_) {
  char* pTo = reinterpret_cast<char*>(&value_);
  const uint32_t kinds = loadField(entry_.value_mask) |
                         static_cast<uint32_t>(loadField(entry_.value_flags)) << 16 |
                         static_cast<uint32_t>(loadField(entry_.type_hint)) << 24;
  word(pTo, pair(hash_, kinds));
  value_._lval = loadField(entry_.l);
  value_._pRawBytes = loadField(entry_.raw_bytes);
  value_._pTagBytes = loadField(entry_.tag_bytes);
  value_._pStringRep = loadField(entry_.string_rep);
  word(pTo + 40, pair(loadField(entry_.raw_bytes_length), loadField(entry_.tag_length)));
  word(pTo + 48, pair(loadField(entry_.string_rep_length), array_));
  word(pTo + 56, pair(last_, arrayCount_));
  word(pTo + 64, pair(loadField(entry_.parent), loadField(entry_.first_child)));
  word(pTo + 72, pair(loadField(entry_.next_sibling), 0));  // and the padding behind it
}

// Makes the room store() found missing (key slots when keys_, else entries),
// then stores; the invalid index when memory runs out.
[[gnu::noinline, gnu::cold, gnu::visibility("hidden")]] uint32_t growAndStore(
    Impl& impl_, const tarn_message_value_set_entry& entry_, bool keys_);

// Appends entry_ as the first of its hash, with its key (if any) already placed.
inline uint32_t storeUnkeyed(Impl& impl_, const tarn_message_value_set_entry& entry_,
                             uint32_t hash_) {
  const uint32_t index = impl_._storeCount;
  place(impl_._pValues[index], entry_, hash_, 0, index, 1);
  impl_._storeCount = index + 1;
  return index;
}

// Appends a copy of entry_ and returns its index, under the insertion rule
// above. Growth leaves through a tail call, so the usual path calls nothing.
// Force-inlined into an exported update after any early return it makes, which
// thus still saves no registers.
[[gnu::always_inline]] inline uint32_t store(Impl& impl_,
                                             const tarn_message_value_set_entry& entry_) {
  const uint32_t index = impl_._storeCount;
  if (index == impl_._allocCount) return growAndStore(impl_, entry_, false);
  const uint32_t hash = entry_.hash;
  if (__builtin_expect(hash == 0, 0)) return storeUnkeyed(impl_, entry_, hash);
  KeyData* const pKeys = impl_._pKeys;
  const uint32_t mask = impl_._bucketMask;
  uint32_t slot = hash & mask;
  while (pKeys[slot]._hash != hash) {
    if (pKeys[slot]._hash == 0) {
      if (!roomFor(impl_, impl_._keyCount + 1)) return growAndStore(impl_, entry_, true);
      pKeys[slot] = KeyData{hash, index};
      ++impl_._keyCount;
      return storeUnkeyed(impl_, entry_, hash);
    }
    slot = (slot + 1) & mask;
  }
  const uint32_t first = pKeys[slot]._valueIndex;
  // Read after the probe, not with the other fields before it: the probe and
  // the copy then each fit in the registers a call may clobber, and nothing
  // is saved on the stack. Read before the writes, which the compiler must
  // assume may overwrite it. The first entry's _last and _arrayCount go out
  // as one word before the copy, which then needs none of the probe's values.
  Value* const pValues = impl_._pValues;
  Value& head = pValues[first];
  word(reinterpret_cast<char*>(&head) + 56, pair(index, loadField(head._arrayCount) + 1));
  impl_._storeCount = index + 1;
  place(pValues[index], entry_, hash, first, index, 0);
  return index;
}

// A partial parse's store. With a find set, an entry is kept when its path
// hash is in the set or when its parent was kept, so asking for a nested
// message keeps its whole subtree. A rejected entry gets the invalid index
// and so its children, unless asked for themselves, are rejected too.
[[gnu::noinline, gnu::visibility("hidden")]] uint32_t storeWanted(
    Impl& impl_, const tarn::tarn_xpath_hash_set& find_,
    const tarn_message_value_set_entry& entry_);

// The stored entry at index_, or null when none is stored there. A value is
// laid out as the entry it holds (tarn/tarn_xpath_value.h pins it).
inline tarn_message_value_set_entry* entryAt(Impl& impl_, uint32_t index_) {
  if (__builtin_expect(index_ < impl_._storeCount, 1))
    return reinterpret_cast<tarn_message_value_set_entry*>(impl_._pValues + index_);
  return nullptr;
}

// Empties the set; its key table and value array keep their size.
inline void clear(Impl& impl_) {
  std::memset(impl_._pKeys, 0, sizeof(*impl_._pKeys) * impl_._bucketCount);
  impl_._keyCount = 0;
  impl_._storeCount = 0;
}

}  // namespace store
}  // namespace tarn_host

#endif

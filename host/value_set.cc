#include "value_set.h"

#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <new>

#include "host_export.h"

namespace tarn_host {
namespace {

using Impl = tarn::tarn_xpath_value_set::value_set_impl;
using KeyData = tarn::tarn_xpath_value_set::key_data;
using Value = tarn::tarn_xpath_value;

const uint32_t invalid = tarn_message_value_invalid_index;

// How tarn_message_xpath_update serves a set, decided whenever the mode or the
// recording changes, so that a store asks one question per entry.
enum class Route : uint8_t {
  null,     // answer with a fresh index, nothing else
  store,    // store every entry a full parse submits, record nothing
  discard,  // without a find set, as null; with one, the general path
  other,    // recording: the general path
};

// Host bookkeeping that is not part of the shared layout (_pUserData names it).
struct SetState {
  Route route;
  ValueSet::Mode mode;
  uint32_t submitted;              // indexes handed out in discard and null mode
  tarn::tarn_xpath_value scratch;  // discard and null mode: the entry every index names
  // Tests: every submitted record, kept or not (see recordSubmissions).
  std::vector<tarn_message_value_set_entry>* pRecord;
};

// The storage and the bookkeeping share one block, so that the bookkeeping
// sits at a fixed distance from the storage instead of behind a pointer.
struct SetBlock {
  Impl impl;
  SetState state;
};

Impl& implOf(tarn_message_xpath_value_set valueSet_) {
  return *static_cast<tarn::tarn_xpath_value_set*>(valueSet_)->_pValueSetImpl;
}

SetState& state(Impl& impl_) { return reinterpret_cast<SetBlock&>(impl_).state; }

void setRoute(SetState& st_) {
  st_.route = st_.mode == ValueSet::Mode::null    ? Route::null
              : st_.pRecord != nullptr            ? Route::other
              : st_.mode == ValueSet::Mode::store ? Route::store
                                                  : Route::discard;
}

// An empty slot for hash_ in a table with room (see roomFor).
KeyData& emptySlot(Impl& impl_, uint32_t hash_) {
  uint32_t slot = hash_ & impl_._bucketMask;
  while (impl_._pKeys[slot]._hash != 0) slot = (slot + 1) & impl_._bucketMask;
  return impl_._pKeys[slot];
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

bool wanted(const tarn::tarn_xpath_hash_set* pFind_, const tarn_message_value_set_entry& entry_) {
  if (pFind_ == nullptr) return true;
  return pFind_->contains(entry_.hash) || entry_.parent != invalid;
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

uint32_t growAndStore(Impl& impl_, const tarn_message_value_set_entry& entry_, bool keys_);

// Appends entry_ as the first of its hash, with its key (if any) already placed.
inline uint32_t storeUnkeyed(Impl& impl_, const tarn_message_value_set_entry& entry_,
                             uint32_t hash_) {
  const uint32_t index = impl_._storeCount;
  place(impl_._pValues[index], entry_, hash_, 0, index, 1);
  impl_._storeCount = index + 1;
  return index;
}

// Appends a copy of entry_ and returns its index, or the invalid index (and
// stores nothing) when memory runs out. The first entry of a hash gets the key
// slot; a later one is chained to it through _array, and the first entry's
// _last and _arrayCount follow. Hash 0 marks empty slots, so an entry with
// hash 0 is stored without a key. Growth leaves through a tail call, so the
// usual path calls nothing. Inlined into tarn_message_xpath_update after the
// null mode's early return, which thus still saves no registers.
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

// The same store for the paths that are not the plain store's.
[[gnu::noinline]] uint32_t storeOutOfLine(Impl& impl_, const tarn_message_value_set_entry& entry_) {
  return store(impl_, entry_);
}

// Makes the room that store() found missing (key slots or entries), then
// stores.
[[gnu::noinline, gnu::cold]] uint32_t growAndStore(Impl& impl_,
                                                   const tarn_message_value_set_entry& entry_,
                                                   bool keys_) {
  if (!(keys_ ? growKeys(impl_) : growValues(impl_))) return invalid;
  return storeOutOfLine(impl_, entry_);
}

// Recording, a find set or discard mode.
[[gnu::noinline]] uint32_t updateOther(Impl& impl_, SetState& st_,
                                       tarn_message_xpath_find_set findSet_,
                                       tarn_message_value_set_entry* pEntry_) {
  if (st_.pRecord != nullptr) st_.pRecord->push_back(*pEntry_);
  if (!wanted(static_cast<const tarn::tarn_xpath_hash_set*>(findSet_), *pEntry_)) return invalid;
  if (st_.mode == ValueSet::Mode::discard) return st_.submitted++;
  return storeOutOfLine(impl_, *pEntry_);
}

}  // namespace

ValueSet::ValueSet(uint32_t baseHash_, Mode mode_) {
  auto* pBlock = new SetBlock();
  Impl& impl = pBlock->impl;
  impl._bucketCount = tarn::tarn_xpath_value_set::default_bucket_count;
  impl._bucketMask = impl._bucketCount - 1;
  impl._baseHash = baseHash_;
  impl._pKeys = static_cast<KeyData*>(std::calloc(impl._bucketCount, sizeof(KeyData)));
  if (impl._pKeys == nullptr) {
    delete pBlock;
    throw std::bad_alloc();
  }
  impl._pUserData = &pBlock->state;
  pBlock->state.mode = mode_;
  setRoute(pBlock->state);
  _set._pValueSetImpl = &impl;
}

ValueSet::~ValueSet() {
  Impl* pImpl = _set._pValueSetImpl;
  std::free(pImpl->_pKeys);
  std::free(pImpl->_pValues);
  delete &reinterpret_cast<SetBlock&>(*pImpl);
}

std::vector<tarn_message_value_set_entry> ValueSet::entries() const {
  std::vector<tarn_message_value_set_entry> out;
  for (uint32_t i = 0; i < size(); ++i) out.push_back((*this)[i]);
  return out;
}

uint32_t ValueSet::submitted() const {
  const SetState& st = state(*_set._pValueSetImpl);
  return st.mode == Mode::store ? size() : st.submitted;
}

void ValueSet::recordSubmissions(std::vector<tarn_message_value_set_entry>* pLog_) {
  SetState& st = state(*_set._pValueSetImpl);
  st.pRecord = pLog_;
  setRoute(st);
}

void ValueSet::clear() { tarn_message_xpath_clear(&_set); }

}  // namespace tarn_host

using tarn_host::implOf;

TARN_HOST_EXPORT tarn_message_xpath_hash
tarn_message_xpath_hash_get_base(tarn_message_xpath_value_set valueSet) {
  return implOf(valueSet)._baseHash;
}

// Once per entry a parse stores: the null mode, the plain store and a
// discarding set that filters nothing are served here, everything else out of
// line. A set that keeps nothing costs a parse no more than the null set
// does, so the discarding benchmark measures the module and the path hash.
TARN_HOST_EXPORT uint32_t tarn_message_xpath_update(tarn_message_xpath_value_set valueSet,
                                                    tarn_message_xpath_find_set findSet,
                                                    tarn_message_value_set_entry* entry) {
  using tarn_host::Route;
  auto& impl = implOf(valueSet);
  auto& st = tarn_host::state(impl);
  if (st.route == Route::null) return st.submitted++;
  if (st.route == Route::store && findSet == nullptr) return tarn_host::store(impl, *entry);
  if (st.route == Route::discard && findSet == nullptr) return st.submitted++;
  return tarn_host::updateOther(impl, st, findSet, entry);
}

// Once per entry a parse stores, for its previous sibling. A set stores
// entries only in store mode (the mode is fixed when the set is made), so an
// index below the entry count answers at once and the mode is asked only for
// the others.
TARN_HOST_EXPORT tarn_message_value_set_entry* tarn_message_xpath_get(
    tarn_message_xpath_value_set valueSet, uint32_t index) {
  auto& impl = implOf(valueSet);
  if (__builtin_expect(index < impl._storeCount, 1))
    return reinterpret_cast<tarn_message_value_set_entry*>(impl._pValues + index);
  auto& st = tarn_host::state(impl);
  if (st.mode != tarn_host::ValueSet::Mode::store)
    return reinterpret_cast<tarn_message_value_set_entry*>(&st.scratch);
  return nullptr;
}

TARN_HOST_EXPORT void tarn_message_xpath_clear(tarn_message_xpath_value_set valueSet) {
  auto& impl = implOf(valueSet);
  std::memset(impl._pKeys, 0, sizeof(*impl._pKeys) * impl._bucketCount);
  impl._keyCount = 0;
  impl._storeCount = 0;
  tarn_host::state(impl).submitted = 0;
}

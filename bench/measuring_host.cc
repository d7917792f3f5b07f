#include "measuring_host.h"

#include <atomic>

#include "host/host_export.h"
#include "host/path_hash.h"
#include "host/value_store.h"

namespace tarn_bench {
namespace {

std::atomic<bool> g_cheap{false};

MeasuredSet::View& viewOf(tarn_message_xpath_value_set valueSet_) {
  return *static_cast<MeasuredSet::View*>(static_cast<tarn::tarn_xpath_value_set*>(valueSet_));
}

}  // namespace

MeasuredSet::MeasuredSet(Keep keep_) : _view() {
  _view._pValueSetImpl = _storage.set()._pValueSetImpl;
  _view.keep = keep_;
}

uint32_t MeasuredSet::submitted() const {
  return _view.keep == Keep::all ? _storage.size() : _view.submitted;
}

void MeasuredSet::clear() {
  _view.submitted = 0;
  tarn_host::store::clear(*_view._pValueSetImpl);
}

void cheapHashing(bool on_) { g_cheap.store(on_, std::memory_order_relaxed); }

}  // namespace tarn_bench

namespace store = tarn_host::store;
using tarn_bench::MeasuredSet;

TARN_HOST_EXPORT tarn_message_xpath_hash
tarn_message_xpath_hash_get_base(tarn_message_xpath_value_set valueSet) {
  return store::implOf(valueSet)._baseHash;
}

TARN_HOST_EXPORT tarn_message_xpath_hash
tarn_message_xpath_hash_string(const char* data, size_t length, tarn_message_xpath_hash seed) {
  if (tarn_bench::g_cheap.load(std::memory_order_relaxed))
    return seed + static_cast<tarn_message_xpath_hash>(length);
  return tarn_host::pathHash(data, length, seed);
}

TARN_HOST_EXPORT tarn_message_xpath_hash
tarn_message_xpath_hash_add_separator(tarn_message_xpath_hash hash) {
  if (tarn_bench::g_cheap.load(std::memory_order_relaxed)) return hash + 1;
  return tarn_host::pathHashAddSeparator(hash);
}

// A set that keeps nothing answers before anything else, so it costs a parse
// no more than the host interface's calls themselves.
TARN_HOST_EXPORT uint32_t tarn_message_xpath_update(tarn_message_xpath_value_set valueSet,
                                                    tarn_message_xpath_find_set findSet,
                                                    tarn_message_value_set_entry* entry) {
  MeasuredSet::View& view = tarn_bench::viewOf(valueSet);
  if (view.keep == MeasuredSet::Keep::nothing) return view.submitted++;
  store::Impl& impl = *view._pValueSetImpl;
  if (findSet == nullptr) return store::store(impl, *entry);
  return store::storeWanted(impl, *static_cast<const tarn::tarn_xpath_hash_set*>(findSet), *entry);
}

// A set that keeps nothing stores no entry, so an index below the entry count
// answers at once and the set is asked only for the others.
TARN_HOST_EXPORT tarn_message_value_set_entry* tarn_message_xpath_get(
    tarn_message_xpath_value_set valueSet, uint32_t index) {
  MeasuredSet::View& view = tarn_bench::viewOf(valueSet);
  if (tarn_message_value_set_entry* pEntry = store::entryAt(*view._pValueSetImpl, index))
    return pEntry;
  return view.keep == MeasuredSet::Keep::nothing ? &view.scratch : nullptr;
}

TARN_HOST_EXPORT void tarn_message_xpath_clear(tarn_message_xpath_value_set valueSet) {
  // The count first: then only the storage is needed past the key table's
  // memset, and the view's pointer is not saved across the call.
  MeasuredSet::View& view = tarn_bench::viewOf(valueSet);
  view.submitted = 0;
  store::clear(*view._pValueSetImpl);
}

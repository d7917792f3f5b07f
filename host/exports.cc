// The six functions the stand-in host exports to the module it loads, over
// its value sets (value_store.h) and its path hash (path_hash.h). Every set a
// module is handed here is a ValueSet.
#include "host_export.h"
#include "path_hash.h"
#include "value_store.h"

namespace store = tarn_host::store;

TARN_HOST_EXPORT tarn_message_xpath_hash
tarn_message_xpath_hash_get_base(tarn_message_xpath_value_set valueSet) {
  return store::implOf(valueSet)._baseHash;
}

TARN_HOST_EXPORT tarn_message_xpath_hash
tarn_message_xpath_hash_string(const char* data, size_t length, tarn_message_xpath_hash seed) {
  return tarn_host::pathHash(data, length, seed);
}

TARN_HOST_EXPORT tarn_message_xpath_hash
tarn_message_xpath_hash_add_separator(tarn_message_xpath_hash hash) {
  return tarn_host::pathHashAddSeparator(hash);
}

// Once per entry a parse stores: a full parse's store is served in line.
TARN_HOST_EXPORT uint32_t tarn_message_xpath_update(tarn_message_xpath_value_set valueSet,
                                                    tarn_message_xpath_find_set findSet,
                                                    tarn_message_value_set_entry* entry) {
  store::Impl& impl = store::implOf(valueSet);
  if (findSet == nullptr) return store::store(impl, *entry);
  return store::storeWanted(impl, *static_cast<const tarn::tarn_xpath_hash_set*>(findSet), *entry);
}

TARN_HOST_EXPORT tarn_message_value_set_entry* tarn_message_xpath_get(
    tarn_message_xpath_value_set valueSet, uint32_t index) {
  return store::entryAt(store::implOf(valueSet), index);
}

TARN_HOST_EXPORT void tarn_message_xpath_clear(tarn_message_xpath_value_set valueSet) {
  store::clear(store::implOf(valueSet));
}

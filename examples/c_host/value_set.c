/* Value-set storage and the six functions the module calls to fill it. */
#include "value_set.h"

#include <stdlib.h>
#include <string.h>

enum { initial_buckets = 16 };
static const uint32_t base_hash = 2166136261u; /* FNV-1a offset basis */
static const uint32_t invalid = 0xFFFFFFFFu;   /* tarn_message_value_invalid_index */

/* Key-table lookup, exactly as the module's merge probes: from the home slot
 * on, one slot at a time, wrapping; an empty slot (hash 0) ends the search. */
static tarn_value_set_key_slot* find_slot(const tarn_value_set_storage* s, uint32_t hash) {
  uint32_t slot = hash & s->bucket_mask;
  uint32_t probes;
  for (probes = 0; probes <= s->bucket_count; ++probes) {
    tarn_value_set_key_slot* key = &s->keys[slot];
    if (key->hash == hash || key->hash == 0) return key;
    slot = (slot + 1) & s->bucket_mask;
  }
  return NULL; /* never reached: the table is kept at most half full */
}

/* Doubles the key table when it would become more than half full. */
static int make_room_for_key(tarn_value_set_storage* s) {
  tarn_value_set_key_slot* old = s->keys;
  uint32_t old_count = s->bucket_count, i;
  if ((s->key_count + 1) * 2 <= s->bucket_count) return 1;
  s->keys = calloc((size_t)old_count * 2, sizeof *s->keys);
  if (s->keys == NULL) {
    s->keys = old;
    return 0;
  }
  s->bucket_count = old_count * 2;
  s->bucket_mask = s->bucket_count - 1;
  for (i = 0; i < old_count; ++i)
    if (old[i].hash != 0) *find_slot(s, old[i].hash) = old[i];
  free(old);
  return 1;
}

host_value_set* host_value_set_create(void) {
  host_value_set* set = calloc(1, sizeof *set);
  if (set == NULL) return NULL;
  set->storage.keys = calloc(initial_buckets, sizeof *set->storage.keys);
  if (set->storage.keys == NULL) {
    free(set);
    return NULL;
  }
  set->storage.bucket_count = initial_buckets;
  set->storage.bucket_mask = initial_buckets - 1;
  set->storage.base_hash = base_hash;
  set->handle.storage = &set->storage;
  return set;
}

void host_value_set_destroy(host_value_set* set) {
  if (set == NULL) return;
  free(set->storage.keys);
  free(set->storage.values);
  free(set);
}

tarn_message_xpath_value_set host_value_set_handle(host_value_set* set) { return &set->handle; }

static tarn_value_set_storage* storage_of(tarn_message_xpath_value_set handle) {
  return ((tarn_value_set*)handle)->storage;
}

/* ---- The six functions the module binds to when it is loaded. ---- */

tarn_message_xpath_hash tarn_message_xpath_hash_get_base(tarn_message_xpath_value_set valueSet) {
  return storage_of(valueSet)->base_hash;
}

/* FNV-1a continued from the seed. 0 marks an empty key slot, so it is never
 * returned. Any pure function will do; the module only needs the same answer
 * for the same arguments. */
tarn_message_xpath_hash tarn_message_xpath_hash_string(const char* data, size_t length,
                                                       tarn_message_xpath_hash seed) {
  uint32_t hash = seed;
  size_t i;
  for (i = 0; i < length; ++i) hash = (hash ^ (unsigned char)data[i]) * 16777619u;
  return hash != 0 ? hash : 1;
}

tarn_message_xpath_hash tarn_message_xpath_hash_add_separator(tarn_message_xpath_hash hash) {
  return tarn_message_xpath_hash_string("/", 1, hash);
}

uint32_t tarn_message_xpath_update(tarn_message_xpath_value_set valueSet,
                                   tarn_message_xpath_find_set findSet,
                                   tarn_message_value_set_entry* entry) {
  tarn_value_set_storage* s = storage_of(valueSet);
  const host_find_set* find = findSet;
  tarn_value_set_key_slot* key;
  uint32_t index;
  if (find != NULL && entry->parent == invalid) {
    size_t i;
    for (i = 0; i < find->count && find->hashes[i] != entry->hash; ++i) {
    }
    if (i == find->count) return invalid; /* not wanted */
  }
  if (s->store_count == s->alloc_count) {
    uint32_t count = s->alloc_count ? s->alloc_count * 2 : 64;
    tarn_message_value_set_entry* values = realloc(s->values, count * sizeof *values);
    if (values == NULL) return invalid;
    s->values = values;
    s->alloc_count = count;
  }
  if (!make_room_for_key(s)) return invalid;
  index = s->store_count++;
  s->values[index] = *entry;
  key = find_slot(s, entry->hash);
  if (key->hash == 0) { /* the first entry under this hash gets the slot */
    key->hash = entry->hash;
    key->value_index = index;
    ++s->key_count;
  }
  return index;
}

tarn_message_value_set_entry* tarn_message_xpath_get(tarn_message_xpath_value_set valueSet,
                                                     uint32_t index) {
  tarn_value_set_storage* s = storage_of(valueSet);
  return index < s->store_count ? &s->values[index] : NULL;
}

void tarn_message_xpath_clear(tarn_message_xpath_value_set valueSet) {
  tarn_value_set_storage* s = storage_of(valueSet);
  memset(s->keys, 0, s->bucket_count * sizeof *s->keys);
  s->key_count = 0;
  s->store_count = 0;
}

/* ---- Reading a set back by path. ---- */

uint32_t host_path_hash(const host_value_set* set, const char* path) {
  uint32_t hash = set->storage.base_hash;
  int first = 1;
  while (*path != '\0') {
    size_t length = strcspn(path, ".");
    if (!first) hash = tarn_message_xpath_hash_add_separator(hash);
    hash = tarn_message_xpath_hash_string(path, length, hash);
    path += length + (path[length] == '.');
    first = 0;
  }
  return hash;
}

const tarn_message_value_set_entry* host_value_set_find(const host_value_set* set,
                                                        const char* path) {
  const tarn_value_set_key_slot* key = find_slot(&set->storage, host_path_hash(set, path));
  return key != NULL && key->hash != 0 ? &set->storage.values[key->value_index] : NULL;
}

uint32_t host_value_set_count(const host_value_set* set, const char* path) {
  const uint32_t hash = host_path_hash(set, path);
  uint32_t i, count = 0;
  for (i = 0; i < set->storage.store_count; ++i) count += set->storage.values[i].hash == hash;
  return count;
}

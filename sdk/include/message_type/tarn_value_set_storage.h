/* The host's value-set storage, as the module reads it directly.
 *
 * Parsing reaches a value set only through the six tarn_message_xpath_*
 * functions. The delta merge is different: it reads both value sets itself,
 * once per field of two messages, through the layout below. A host that merges
 * must therefore keep its value sets in exactly this form, and this header is
 * the one place that states it (the C++ view under tarn/ is checked against it
 * when it is compiled).
 *
 * What a host must keep true while a merge runs:
 * - A tarn_message_xpath_value_set handle points at a tarn_value_set, whose
 *   only field points at the storage. Handing the storage itself in its place
 *   is a crash.
 * - values[i] is the entry with index i: the entry that tarn_message_xpath_update
 *   returned i for and that tarn_message_xpath_get(set, i) returns.
 * - store_count is the number of entries in values. The merge reads no index at
 *   or beyond it and treats a set with store_count 0 as holding nothing, so a
 *   host that forgets to count gets an empty merge.
 * - keys is an open-addressing table of bucket_count slots (a power of two,
 *   bucket_mask = bucket_count - 1). A path hash h is looked up from slot
 *   h & bucket_mask onwards, one slot at a time, wrapping after the last: the
 *   slot whose hash is h answers with its value_index, a slot with hash 0
 *   (empty) ends the search unanswered. Path hashes are never 0. Keep at least
 *   one slot empty; a full table is searched bucket_count + 2 slots at most.
 * - Every occurrence of a repeated field shares one path hash; its slot names
 *   one of them (which one is the host's choice, and the merge room walk and
 *   the merge ask the same table, so they agree).
 * The other fields are the host's own and are not read by the module.
 *
 * Sizes and offsets are those of a 64-bit Linux host (LP64). */
#ifndef TARN_SDK_MESSAGE_TYPE_TARN_VALUE_SET_STORAGE_H
#define TARN_SDK_MESSAGE_TYPE_TARN_VALUE_SET_STORAGE_H

#include <stddef.h>
#include <stdint.h>

#include "message_type/tarn_message_type.h"

#ifdef __cplusplus
extern "C" {
#endif

/* One slot of the key table; hash 0 marks an empty slot. */
typedef struct tarn_value_set_key_slot {
  uint32_t hash;
  uint32_t value_index;
} tarn_value_set_key_slot;

/* Byte buffers a host may keep with a set; not read by the module. */
typedef struct tarn_value_set_buffers {
  char** buffers;
  uint32_t count;
  uint32_t allocated;
} tarn_value_set_buffers;

typedef struct tarn_value_set_storage {
  uint32_t bucket_count; /* slots in keys, a power of two */
  uint32_t bucket_mask;  /* bucket_count - 1 */
  uint32_t key_count;    /* host's own */
  uint32_t store_count;  /* entries in values; bounds every index the merge reads */
  uint32_t alloc_count;  /* host's own */
  uint32_t base_hash;    /* host's own; a natural answer to tarn_message_xpath_hash_get_base */
  tarn_value_set_key_slot* keys;
  tarn_message_value_set_entry* values;
  void* user_data;                     /* host's own */
  tarn_value_set_buffers value_buffer; /* host's own */
  const void* memoize_find_set;        /* host's own */
} tarn_value_set_storage;

/* What a tarn_message_xpath_value_set handle points at. */
typedef struct tarn_value_set {
  tarn_value_set_storage* storage;
} tarn_value_set;

#ifdef __cplusplus
#define TARN_LAYOUT_ASSERT(condition, text) static_assert(condition, text)
#else
#define TARN_LAYOUT_ASSERT(condition, text) _Static_assert(condition, text)
#endif

TARN_LAYOUT_ASSERT(sizeof(void*) == 8, "the shared layout is that of a 64-bit host");
/* The value-set entry: 76 bytes of fields, padded to 80. */
TARN_LAYOUT_ASSERT(sizeof(tarn_message_value_set_entry) == 80, "entry size");
TARN_LAYOUT_ASSERT(offsetof(tarn_message_value_set_entry, l) == 8, "entry value");
TARN_LAYOUT_ASSERT(offsetof(tarn_message_value_set_entry, raw_bytes) == 16, "entry raw_bytes");
TARN_LAYOUT_ASSERT(offsetof(tarn_message_value_set_entry, raw_bytes_length) == 40,
                   "entry raw_bytes_length");
TARN_LAYOUT_ASSERT(offsetof(tarn_message_value_set_entry, parent) == 64, "entry parent");
TARN_LAYOUT_ASSERT(offsetof(tarn_message_value_set_entry, next_sibling) == 72,
                   "entry next_sibling");
/* The key table and the storage. */
TARN_LAYOUT_ASSERT(sizeof(tarn_value_set_key_slot) == 8, "key slot size");
TARN_LAYOUT_ASSERT(sizeof(tarn_value_set_buffers) == 16, "buffer list size");
TARN_LAYOUT_ASSERT(offsetof(tarn_value_set_storage, store_count) == 12, "storage store_count");
TARN_LAYOUT_ASSERT(offsetof(tarn_value_set_storage, keys) == 24, "storage keys");
TARN_LAYOUT_ASSERT(offsetof(tarn_value_set_storage, values) == 32, "storage values");
TARN_LAYOUT_ASSERT(offsetof(tarn_value_set_storage, value_buffer) == 48, "storage buffers");
TARN_LAYOUT_ASSERT(sizeof(tarn_value_set_storage) == 72, "storage size");
TARN_LAYOUT_ASSERT(sizeof(tarn_value_set) == 8, "handle target size");
#undef TARN_LAYOUT_ASSERT

#ifdef __cplusplus
}
#endif

#endif

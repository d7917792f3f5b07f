/* The C host's value sets: storage in the layout the module's merge reads
 * (message_type/tarn_value_set_storage.h), filled by the module through the
 * six tarn_message_xpath_* functions that value_set.c defines. The program
 * must export those six to the module: link it with -rdynamic. */
#ifndef C_HOST_VALUE_SET_H
#define C_HOST_VALUE_SET_H

#include <stddef.h>
#include <stdint.h>

#include "message_type/tarn_message_type.h"
#include "message_type/tarn_value_set_storage.h"

/* A value set. The module is handed &set->handle (never &set->storage). */
typedef struct host_value_set {
  tarn_value_set handle;
  tarn_value_set_storage storage;
} host_value_set;

/* A find set for a partial parse: the path hashes wanted. An entry is kept
 * when its hash is wanted or its parent was kept, so asking for a nested
 * message keeps the message with everything inside it. */
typedef struct host_find_set {
  const uint32_t* hashes;
  size_t count;
} host_find_set;

/* Null when out of memory. */
host_value_set* host_value_set_create(void);
void host_value_set_destroy(host_value_set* set);
tarn_message_xpath_value_set host_value_set_handle(host_value_set* set);

/* The hash of a dotted path such as "last_trade.price", built the way the
 * module builds an entry's hash: each name continued from the one before,
 * with the separator in between, starting from the set's base hash. */
uint32_t host_path_hash(const host_value_set* set, const char* path);
/* The entry stored under a path (the first occurrence of a repeated field),
 * or null; and the number of entries stored under it. */
const tarn_message_value_set_entry* host_value_set_find(const host_value_set* set,
                                                        const char* path);
uint32_t host_value_set_count(const host_value_set* set, const char* path);

#endif

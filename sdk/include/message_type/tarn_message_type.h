// Message-type SDK: value records, the value set entry and its setters, the
// host's value-set functions and the entry points a message-type module exports.
// Field order and widths of every record are shared with the host and binding.
#ifndef TARN_SDK_MESSAGE_TYPE_TARN_MESSAGE_TYPE_H
#define TARN_SDK_MESSAGE_TYPE_TARN_MESSAGE_TYPE_H

#include <stdbool.h>
#include <stddef.h>
#include <stdint.h>

#include "module/tarn_module.h"
#include "tarn_common.h"

#ifdef __cplusplus
extern "C" {
#endif

typedef void* tarn_message_xpath_value_set;
typedef const void* tarn_message_xpath_find_set;
typedef uint32_t tarn_message_xpath_hash;

static const uint32_t tarn_message_xpath_value_type_string = 0;
static const uint32_t tarn_message_xpath_value_type_double = 1;
static const uint32_t tarn_message_xpath_value_type_int = 2;
static const uint32_t tarn_message_xpath_value_type_bool = 4;
static const uint32_t tarn_message_xpath_value_type_document = 0xF0;
static const uint32_t tarn_message_xpath_value_type_array = 0xD0;

static const uint32_t tarn_message_xpath_value_mask_double = 1;
static const uint32_t tarn_message_xpath_value_mask_long = 2;
static const uint32_t tarn_message_xpath_value_mask_bool = 4;
static const uint32_t tarn_message_xpath_value_mask_double_conversion = 8;
static const uint32_t tarn_message_xpath_value_mask_long_conversion = 16;

static const uint32_t tarn_message_value_flags_attribute = 1;
static const uint32_t tarn_message_value_invalid_index = 0xFFFFFFFFu;
static const uint32_t tarn_message_value_array_child = 0xFFFFFFFEu;

static const uint8_t tarn_message_value_set_entry_flag_attribute = 2;
static const uint8_t tarn_message_value_set_entry_flag_required = 4;

/* One value as the host describes it for serialization. */
typedef struct tarn_message_xpath_value {
  uint32_t type_hint;
  uint32_t value_mask;
  const char* string_rep;
  size_t string_rep_length;
  const char* raw_bytes;
  size_t raw_bytes_length;
  union {
    unsigned long u;
    long l;
    double f;
    bool b;
  } value;
} tarn_message_xpath_value;

typedef struct tarn_message_value {
  const char* path;
  size_t path_length;
  uint32_t path_hash;
  uint32_t stock_tag;
  uint32_t depth;
  uint32_t flags;
  tarn_message_xpath_value xpath_value;
} tarn_message_value;

typedef struct tarn_message_value_list {
  size_t count;
  tarn_message_value* values;
} tarn_message_value_list;

typedef struct tarn_message_string {
  const char* data;
  size_t length;
} tarn_message_string;

typedef struct tarn_output_message_data {
  tarn_message_segment message;
  tarn_message_segment data;
  const tarn_message_value_list* value_list;
  uint32_t body_type;
  uint32_t serialize_size;
  tarn_message_type_context message_type_context;
  tarn_context context;
  tarn_message_xpath_value_set source_value_set;
  tarn_message_xpath_value_set update_value_set;
} tarn_output_message_data;

typedef struct tarn_delta_message_data {
  tarn_message_segment output;
  size_t output_count;
  const tarn_message_string* update_data;
  const tarn_message_string* source_data;
  tarn_message_xpath_value_set update_value_set;
  tarn_message_xpath_value_set source_value_set;
  tarn_message_type_context message_type_context;
  tarn_context context;
  tarn_message_segment_reserve_function reserve;
} tarn_delta_message_data;

/* One stored value of a parsed message; see the host's tarn::tarn_xpath_value,
   which has the same layout. */
typedef struct tarn_message_value_set_entry {
  uint32_t hash;
  uint16_t value_mask;
  uint8_t value_flags;
  uint8_t type_hint;
  union {
    int64_t l;
    double d;
  };
  const char* raw_bytes;
  const char* tag_bytes;
  const char* string_rep;
  uint32_t raw_bytes_length;
  uint32_t tag_length;
  uint32_t string_rep_length;
  uint32_t array;
  uint32_t last;
  uint32_t array_count;
  uint32_t parent;
  uint32_t first_child;
  uint32_t next_sibling;
} tarn_message_value_set_entry;

static inline void tarn_message_value_set_entry_set_long(tarn_message_value_set_entry* pEntry_,
                                                         long value_) {
  pEntry_->l = value_;
  pEntry_->value_mask = (uint16_t)(tarn_message_xpath_value_mask_long |
                                   tarn_message_xpath_value_mask_long_conversion);
  pEntry_->type_hint = (uint8_t)tarn_message_xpath_value_type_int;
}

static inline void tarn_message_value_set_entry_set_double(tarn_message_value_set_entry* pEntry_,
                                                           double value_) {
  pEntry_->d = value_;
  pEntry_->value_mask = (uint16_t)(tarn_message_xpath_value_mask_double |
                                   tarn_message_xpath_value_mask_double_conversion);
  pEntry_->type_hint = (uint8_t)tarn_message_xpath_value_type_double;
}

/* Provided by the host process and resolved when it loads the module. */
tarn_message_xpath_hash tarn_message_xpath_hash_get_base(tarn_message_xpath_value_set valueSet);
tarn_message_xpath_hash tarn_message_xpath_hash_string(const char* data, size_t length,
                                                       tarn_message_xpath_hash seed);
tarn_message_xpath_hash tarn_message_xpath_hash_add_separator(tarn_message_xpath_hash hash);
uint32_t tarn_message_xpath_update(tarn_message_xpath_value_set valueSet,
                                   tarn_message_xpath_find_set findSet,
                                   tarn_message_value_set_entry* entry);
tarn_message_value_set_entry* tarn_message_xpath_get(tarn_message_xpath_value_set valueSet,
                                                     uint32_t index);
void tarn_message_xpath_clear(tarn_message_xpath_value_set valueSet);

/* The eleven entry points a message-type module exports. */
int tarn_module_init(tarn_module_options options, tarn_module_logger logger,
                     tarn_module_allocator allocator);
int tarn_module_terminate(void);
tarn_message_type_context tarn_message_type_create_context(const tarn_module_options options_);
int tarn_message_type_destroy_context(tarn_message_type_context context_);
int tarn_message_type_get_supported_options(tarn_message_type_context context_,
                                            const char** optionsOut_, size_t* optionsOutLength_);
int tarn_message_type_parse_message(tarn_input_message* pInputMessage_,
                                    tarn_message_xpath_value_set valueSet_);
int tarn_message_type_partial_parse_message(tarn_input_message* pInputMessage_,
                                            const tarn_message_xpath_find_set findSet_,
                                            tarn_message_xpath_value_set valueSet_);
int tarn_message_type_trace_message(tarn_message_type_context context_,
                                    const tarn_trace_buffer* pTraceBuffer_,
                                    tarn_trace_output_buffer* pOutputBuffer_);
int tarn_message_type_compute_serialize_size(tarn_output_message_data* outputMessage_);
int tarn_message_type_serialize_message(tarn_output_message_data* outputMessage_);
int tarn_message_type_delta_publish_merge(tarn_delta_message_data* pDeltaMessage_);

#ifdef __cplusplus
}
#endif

#endif

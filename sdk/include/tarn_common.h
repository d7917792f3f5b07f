// Handles and buffer records shared by every kind of host module.
#ifndef TARN_SDK_TARN_COMMON_H
#define TARN_SDK_TARN_COMMON_H

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef void* tarn_context;
typedef void* tarn_message_type_context;
typedef void* tarn_protocol_context;
typedef void* tarn_protocol_client_handle;
typedef void* tarn_protocol_command_id;
typedef uint64_t tarn_message_buffer_handle;

typedef void (*tarn_message_buffer_deallocate_function)(tarn_message_buffer_handle handle);
typedef tarn_message_buffer_handle (*tarn_message_buffer_copy_function)(
    tarn_message_buffer_handle handle);

typedef struct tarn_protocol_buffer {
  tarn_message_buffer_handle buffer_handle;
  tarn_message_buffer_deallocate_function deallocate;
  tarn_message_buffer_copy_function copy;
  uint32_t protocol_byte_offset;
  uint32_t data_byte_offset;
  uint32_t data_byte_count;
  size_t allocated_byte_count;
  uint64_t flags;
} tarn_protocol_buffer;

/* A host-owned region. Writers append behind byte_count and add what they wrote. */
typedef struct tarn_message_segment {
  tarn_protocol_buffer protocol_buffer;
  char* data;
  size_t byte_offset;
  uint32_t byte_count;
  uint32_t reserved1;
} tarn_message_segment;

typedef void (*tarn_message_segment_reserve_function)(tarn_context context,
                                                      tarn_message_segment* segment,
                                                      size_t byteCount);

typedef struct tarn_input_message {
  tarn_message_type_context message_type_context;
  tarn_protocol_context protocol_context;
  tarn_protocol_client_handle protocol_client_handle;
  tarn_protocol_command_id protocol_command_id;
  tarn_context context;
  const char* data;
  size_t byte_count;
} tarn_input_message;

typedef struct tarn_trace_buffer {
  const char* data;
  size_t length;
} tarn_trace_buffer;

/* Text is appended at output + length; nothing is ever NUL-terminated. */
typedef struct tarn_trace_output_buffer {
  char* output;
  size_t capacity;
  size_t length;
} tarn_trace_output_buffer;

#ifdef __cplusplus
}
#endif

#endif

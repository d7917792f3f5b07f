// Module-side SDK: return codes, options, log levels and the two callbacks the
// host hands to a module when it starts it. Plain C data only: the host and the
// module may be built by different compilers.
#ifndef TARN_SDK_MODULE_TARN_MODULE_H
#define TARN_SDK_MODULE_TARN_MODULE_H

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Enumerators rather than constants, so that C can use them as case labels. */
enum { TARN_SUCCESS = 0, TARN_FAILURE = 255 };

/* One configuration entry. An array of them ends at the first null key. */
typedef struct tarn_module_option {
  const char* key;
  const char* value;
} tarn_module_option;

/* Pointer to the first entry of an option array; null means no options. */
typedef tarn_module_option* tarn_module_options;

/* Single-bit levels; debug and info share a value on purpose. */
typedef enum tarn_module_log_level {
  tarn_module_log_level_none = 0,
  tarn_module_log_level_developer = 1,
  tarn_module_log_level_trace = 2,
  tarn_module_log_level_stats = 4,
  tarn_module_log_level_debug = 8,
  tarn_module_log_level_info = 8,
  tarn_module_log_level_warning = 16,
  tarn_module_log_level_error = 32,
  tarn_module_log_level_critical = 64,
  tarn_module_log_level_emergency = 128
} tarn_module_log_level;

typedef void (*tarn_module_logger)(int level, const char* message);
typedef void* (*tarn_module_allocator)(size_t byteCount);

#ifdef __cplusplus
}
#endif

#endif

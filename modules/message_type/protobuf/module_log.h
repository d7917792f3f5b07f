// The module's logging: the host's logger and allocator, recorded at start-up,
// and the one way a formatted line is built (a 1024-byte buffer on the stack,
// so a line carries at most 1023 characters and is cut there without notice).
#ifndef TARN_PROTOBUF_MODULE_LOG_H
#define TARN_PROTOBUF_MODULE_LOG_H

#include "module/tarn_module.h"

// Never null: until tarn_module_init, and after it when the host gave no
// logger, it names a function that drops the line. Written only at start-up.
extern tarn_module_logger LOGGER;
// Recorded for the host's sake; the module's own objects use the process heap.
extern tarn_module_allocator ALLOCATOR;

namespace tarn_protobuf {

const unsigned log_buffer_size = 1024;

// Records the host's logger; a null one sends every later line nowhere.
void setLogger(tarn_module_logger logger_);

// Formats one %s (or two) into a stack buffer and hands it to LOGGER. A null
// argument is shown as "(null)" instead of being handed to snprintf.
void logFormatted(int level_, const char* format_, const char* first_,
                  const char* second_ = nullptr);

}  // namespace tarn_protobuf

#endif
